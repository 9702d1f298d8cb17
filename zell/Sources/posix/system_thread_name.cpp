#include "zell/Sources/system_thread_name.h"

#include <pthread.h>

namespace zell {

void SetSystemNameOfCurrentThread(const std::string& name) {
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());  // a longer one would be refused
}

}  // namespace zell
