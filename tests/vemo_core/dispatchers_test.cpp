#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/midi/at_once.h"
#include "tests/midi/exception_capture.h"
#include "vemo_core/callback_dispatcher.h"
#include "vemo_core/exception_log.h"
#include "vemo_core/gui_dispatcher.h"
#include "zell/cout_buffer.h"

namespace {

TEST(CallbackDispatcher, DeliversAMessageToItsReceiversBeforeNotifyReturns) {
    notify::CallbackDispatcher dispatcher;
    std::vector<std::string> received;
    const int payload = 7;
    const int first = 0;
    const int second = 0;
    dispatcher.AddCallback("a", &first, [&](const void* data) {
        received.push_back("first a " + std::to_string(*static_cast<const int*>(data)));
    });
    dispatcher.AddCallback("b", &first, [&](const void* data) { received.push_back(data ? "data" : "first b"); });
    dispatcher.AddCallback("a", &second, [&](const void*) { received.push_back("second a"); });

    dispatcher.Notify("a", &payload);
    dispatcher.Notify("b");
    dispatcher.Notify("unheard");
    EXPECT_EQ(received, (std::vector<std::string>{"first a 7", "second a", "first b"}));

    received.clear();
    dispatcher.RemoveCallbacksForTarget(&first);
    dispatcher.Notify("a", &payload);
    dispatcher.Notify("b");
    EXPECT_EQ(received, std::vector<std::string>{"second a"});
}

TEST(CallbackDispatcher, AReceiverMayAddAndRemoveReceivers) {
    notify::CallbackDispatcher dispatcher;
    std::vector<std::string> received;
    const int first = 0;
    const int second = 0;
    dispatcher.AddCallback("a", &first, [&](const void*) {
        received.push_back("first");
        dispatcher.RemoveCallbacksForTarget(&first);
        dispatcher.RemoveCallbacksForTarget(&second);
        dispatcher.AddCallback("a", &first, [&](const void*) { received.push_back("added"); });
    });
    dispatcher.AddCallback("a", &second, [&](const void*) { received.push_back("removed before its turn"); });
    dispatcher.Notify("a");
    EXPECT_EQ(received, std::vector<std::string>{"first"});
    dispatcher.Notify("a");
    EXPECT_EQ(received, (std::vector<std::string>{"first", "added"}));
}

TEST(CallbackDispatcher, AReceiverThatThrowsIsLoggedAndTheOthersAreStillCalled) {
    ExceptionCapture exceptions;
    notify::CallbackDispatcher dispatcher;
    int called = 0;
    dispatcher.AddCallback("a", nullptr, [](const void*) { throw std::runtime_error("display lost"); });
    dispatcher.AddCallback("a", nullptr, [](const void*) { throw 1; });
    dispatcher.AddCallback("a", nullptr, nullptr);
    dispatcher.AddCallback("a", nullptr, [&](const void*) { ++called; });
    dispatcher.Notify("a");
    EXPECT_EQ(called, 1);
    const std::string source = "vemo_core/Sources/callback_dispatcher: ";
    EXPECT_EQ(exceptions.Take(), (std::vector{source + "display lost", source + "Unknown exception.",
                                              source + std::bad_function_call().what()}));
}

TEST(CallbackDispatcher, ReceiversComeAndGoWhileOtherThreadsNotify) {
    notify::CallbackDispatcher dispatcher;
    std::atomic<int> late = 0;
    const auto notify = [&] {
        for (int message = 0; message < 20'000; ++message)
            dispatcher.Notify("a");
    };
    const auto change = [&] {
        for (int round = 0; round < 1000; ++round) {
            const auto alive = std::make_shared<std::atomic<bool>>(true);
            dispatcher.AddCallback("a", &round, [&late, alive](const void*) { late += !alive; });
            dispatcher.RemoveCallbacksForTarget(&round);
        }
    };
    AtOnce(change, [&] { AtOnce(notify, notify); });
    int calls = 0;
    dispatcher.AddCallback("a", nullptr, [&](const void*) { ++calls; });
    dispatcher.Notify("a");
    EXPECT_EQ(late, 0);
    EXPECT_EQ(calls, 1);
}

TEST(GuiDispatcher, SendsToTheReceiverOfTheDayAndLogsWhatItThrows) {
    ExceptionCapture exceptions;
    notify::GuiDispatcher dispatcher;
    std::vector<std::string> received;
    dispatcher.SendGuiDelayMessage(1);
    dispatcher.SetReceiver({[&](int delay) { received.push_back(std::to_string(delay)); }, {}});
    dispatcher.SendGuiDelayMessage(25);
    dispatcher.SendMidiClockDebugMessage("nobody shows it");
    dispatcher.SetReceiver({{}, [&](const std::string& text) {
                                received.push_back(text);
                                throw std::runtime_error("display lost");
                            }});
    dispatcher.SendMidiClockDebugMessage("late 1 ms");
    dispatcher.SetReceiver({});
    dispatcher.SendMidiClockDebugMessage("gone");
    EXPECT_EQ(received, (std::vector<std::string>{"25", "late 1 ms"}));
    EXPECT_EQ(exceptions.Take(), std::vector<std::string>{"vemo_core/Sources/gui_dispatcher: display lost"});
}

TEST(ExceptionLog, GoesToTheSinkOrElseToTheConsoleAndNeverThrows) {
    std::vector<std::string> console;
    std::vector<LoggedException> logged;
    const auto before = zell::CoutBuffer::SetSink([&](const std::string& text) { console.push_back(text); });
    VemoLogException("no device", "midi/Sources/midi_output", 12);
    EXPECT_FALSE(SetExceptionLogSink([&](const LoggedException& exception) {
        logged.push_back(exception);
        throw std::runtime_error("log full");
    }));
    VemoLogException("lost", "midi/Sources/midi_queue_thread", 34);
    EXPECT_TRUE(SetExceptionLogSink(nullptr));
    zell::CoutBuffer::SetSink(before);

    EXPECT_EQ(console, std::vector<std::string>{"EXCEPTION no device (midi/Sources/midi_output line 12)\n"});
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_EQ(logged[0].message, "lost");
    EXPECT_EQ(logged[0].sourcePath, "midi/Sources/midi_queue_thread");
    EXPECT_EQ(logged[0].line, 34);
}

}  // namespace
