// Writes the demo songs into a folder: write_demo_songs player/demo
#include "player/demo/song_writing.h"

int main(int count, char** arguments) {
    return player::WriteSongs("write_demo_songs", count, arguments, player::DemoSongs());
}
