// Writes the songs of the shows into a folder: write_show_songs shows
#include "player/demo/song_writing.h"
#include "shows/show_songs.h"

int main(int count, char** arguments) {
    return player::WriteSongs("write_show_songs", count, arguments, player::ShowSongs());
}
