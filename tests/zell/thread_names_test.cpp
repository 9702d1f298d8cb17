#include "zell/thread_names.h"

#include <gtest/gtest.h>
#include <pthread.h>

namespace {

TEST(ThreadNames, ANameCanBeReadBackByTheThreadAndByOthers) {
    zell::ThreadNames names;
    std::string ownName;
    char systemName[64] = "";
    std::thread thread([&] {
        names.SetNameOfCurrentThread("first");
        names.SetNameOfCurrentThread("MidiOutput::AsyncStoppedThread");
        ownName = names.GetNameOfCurrentThread();
        pthread_getname_np(pthread_self(), systemName, sizeof systemName);
    });
    const auto id = thread.get_id();
    thread.join();

    EXPECT_EQ(ownName, "MidiOutput::AsyncStoppedThread");
    EXPECT_EQ(names.GetName(id), "MidiOutput::AsyncStoppedThread");
    EXPECT_STREQ(systemName, "MidiOutput::Asy");
    EXPECT_EQ(names.GetNameOfCurrentThread(), "");
}

}  // namespace
