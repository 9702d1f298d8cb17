#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "midi/invalid_voice_event.h"
#include "midi/midi_device_unavailable.h"
#include "tests/midi/arrivals.h"
#include "tests/midi/console_capture.h"
#include "tests/midi/exception_capture.h"
#include "tests/midi/message_of.h"
#include "tests/midi/output_rig.h"
#include "vemo_core/callback_dispatcher.h"
#include "vemo_core/gui_dispatcher.h"
#include "zell/errors.h"

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using win32_layer::Fault;
using win32_layer::Layer;
using win32_layer::VirtualMidiOutput;

namespace {

Bytes Note(int key) {
    return {0x90, static_cast<std::uint8_t>(key), 100};
}

/// What silences port 0, channel by channel, with these controllers.
std::vector<Bytes> Silence(const std::vector<std::uint8_t>& controllers) {
    std::vector<Bytes> silence;
    for (std::uint8_t status = 0xB0; status <= 0xBF; ++status)
        for (const std::uint8_t controller : controllers)
            silence.push_back({status, controller, 0});
    return silence;
}

/// Of a play that begins with the silencing of all notes: what comes after it.
std::vector<Bytes> AfterAllNotesOff(const std::vector<Bytes>& played) {
    const auto silence = Silence({123, 121});
    const auto [end, rest] = std::ranges::mismatch(silence, played);
    EXPECT_EQ(end, silence.end()) << "silence ends after " << end - silence.begin();
    return {rest, played.end()};
}

TEST(MidiOutput, IsArmedOnlyWhenPrimedSinceTheLastDisarm) {
    OutputRig rig;
    EXPECT_FALSE(rig.output->ArmPlayback());
    EXPECT_FALSE(rig.output->PlaybackIsActive());
    std::vector<std::pair<std::string, bool>> filled;
    rig.fill = [&](MidiBuffer& buffer, int) { filled.emplace_back(buffer.GetName(), buffer.GetIsFirstBuffer()); };
    for (int round = 0; round < 2; ++round) {
        filled.clear();
        rig.Prime();
        EXPECT_THAT(filled, ElementsAre(std::pair("Main Buffer 0", true), std::pair("Main Buffer 1", false),
                                        std::pair("Main Buffer 2", false), std::pair("Main Buffer 3", false)));
        EXPECT_EQ(rig.output->GetFillBufferIndex(), 0);
        EXPECT_EQ(rig.output->GetPlayBufferIndex(), 0);
        EXPECT_FALSE(rig.output->GetPrimeBuffersInProgress());
        EXPECT_TRUE(rig.output->ArmPlayback());
        EXPECT_TRUE(rig.output->ArmPlayback());
        rig.output->DisarmPlayback();
        EXPECT_FALSE(rig.output->ArmPlayback());
    }
    rig.Prime();
    rig.output->DisarmPlayback();  // primed, never armed: stale all the same
    EXPECT_FALSE(rig.output->ArmPlayback());
}

TEST(MidiOutput, PrimingIsRefusedWhileArmedAndWithoutTheHostLock) {
    OutputRig rig;
    ConsoleCapture console;
    rig.Prime();
    std::unique_lock host(rig.hostMutex, std::defer_lock);
    EXPECT_THROW(rig.output->PrimeBuffers(host), std::system_error);
    EXPECT_FALSE(rig.output->GetPrimeBuffersInProgress());
    EXPECT_TRUE(rig.output->ArmPlayback());  // nothing has changed

    host.lock();
    EXPECT_EQ(MessageOf<std::logic_error>([&] { rig.output->PrimeBuffers(host); }),
              "PrimeBuffers() must only be called when playback is stopped.");
    EXPECT_TRUE(host.owns_lock());
    EXPECT_TRUE(rig.output->PlaybackIsActive());
    EXPECT_THAT(console.Take(), StartsWith("PrimeBuffers called with playback_ enabled.\n"));
}

TEST(MidiOutput, AFillThatThrowsWhilePrimingLeavesItUnprimedAndUnlocked) {
    OutputRig rig;
    rig.fill = [](MidiBuffer&, int cycle) {
        if (cycle == 2)
            throw std::runtime_error("no song");
    };
    std::unique_lock host(rig.hostMutex);
    EXPECT_THROW(rig.output->PrimeBuffers(host), std::runtime_error);
    EXPECT_TRUE(host.owns_lock());
    EXPECT_TRUE(rig.output->GetPrimeBuffersInProgress());
    EXPECT_FALSE(rig.output->ArmPlayback());
    MustEnd("a ring buffer after a fill that threw", [&] { std::lock_guard ring(rig.PlayBuffer().GetMutex()); });
    host.unlock();
    rig.fill = [](MidiBuffer&, int) {};
    rig.Prime();
    EXPECT_TRUE(rig.output->ArmPlayback());
}

TEST(MidiOutput, EachClockPlaysOneCycleInOrderAndKeepsItsTempo) {
    OutputRig rig;
    rig.Prime();
    rig.clock.Arm();
    rig.clock.Pulse(3);  // not armed yet
    EXPECT_EQ(rig.active.Get(), 3);
    EXPECT_THAT(rig.TakePlayed(), IsEmpty());

    ASSERT_TRUE(rig.output->ArmPlayback());
    std::vector<Bytes> expected;
    for (int cycle = 0; cycle < 120; ++cycle) {
        expected.push_back(Note(cycle));
        rig.output->ProcessMidiClock(cycle + 1);
        EXPECT_EQ(rig.output->GetPlayBufferIndex(), (cycle + 1) % 4);
    }
    EXPECT_EQ(rig.TakePlayed(), expected);
    EXPECT_EQ(rig.output->GetTickIndex(), 2380u);
    EXPECT_EQ(rig.output->GetBpmAtTickIndex(2380), 120);
    EXPECT_EQ(rig.output->GetBpmAtTickIndex(2370), std::nullopt);
    EXPECT_EQ(rig.output->GetBpmAtTickIndex(0), std::nullopt);  // of long ago: not kept for ever
    rig.output->Seek(40);
    EXPECT_EQ(rig.output->GetTickIndex(), 40u);
}

TEST(MidiOutput, ACycleThatComesLateIsWaitedForAndThenPlayedInItsPlace) {
    OutputRig rig;
    Door door;
    rig.fill = [&](MidiBuffer&, int cycle) {
        if (cycle == 4)
            door.Pass();
    };
    rig.Start();
    const auto begin = std::chrono::steady_clock::now();
    rig.clock.Pulse(5);  // the fifth gives up after a second
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
    EXPECT_THAT(rig.TakePlayed(), ElementsAre(Note(0), Note(1), Note(2), Note(3)));
    EXPECT_EQ(rig.output->GetPlayBufferIndex(), 0);
    door.Open();
    rig.clock.Pulse(2);
    EXPECT_THAT(rig.TakePlayed(), ElementsAre(Note(4), Note(5)));
}

TEST(MidiOutput, SilenceGoesBeforeItsCycleAndTheLesserOneWaitsForTheNextUseOfTheBuffer) {
    OutputRig rig;
    rig.fill = [](MidiBuffer& buffer, int cycle) {
        if (cycle == 0 || cycle == 1) {
            buffer.SetShouldSendAllNotesOff();
            buffer.SetShouldSendAllCCsOff();
        }
    };
    rig.Start();
    rig.clock.Pulse();
    EXPECT_THAT(rig.TakePlayed(), ElementsAre(Note(0)));  // a first cycle has nothing to silence
    rig.clock.Pulse();
    EXPECT_THAT(AfterAllNotesOff(rig.TakePlayed()), ElementsAre(Note(1)));
    rig.clock.Pulse(3);
    EXPECT_THAT(rig.TakePlayed(), ElementsAre(Note(2), Note(3), Note(4)));
    rig.clock.Pulse();
    auto expected = Silence({121});
    expected.push_back(Note(5));
    EXPECT_EQ(rig.TakePlayed(), expected);
}

TEST(MidiOutput, PlaybackEndsAtTheLastCycleOrACaesuraWithOneStoppedCallback) {
    struct Row {
        const char* name;
        int lastCycle;
        std::uint32_t caesuraTick;
        bool silences;
    };
    for (const Row& row : {Row{"last cycle", 2, OutputRig::kNoTick, true}, Row{"caesura", -1, 20, false}}) {
        SCOPED_TRACE(row.name);
        OutputRig rig;
        int disarms = 0;
        notify::callbackDispatcher.AddCallback(notify::names::disarmedPlayback, &disarms,
                                               [&](const void*) { ++disarms; });
        rig.fill = [&](MidiBuffer& buffer, int cycle) {
            if (cycle == row.lastCycle)
                buffer.SetIsLastBuffer(true);
        };
        rig.caesuraTick = row.caesuraTick;
        rig.Start();
        rig.clock.Pulse(6);
        EXPECT_TRUE(rig.stopped.WaitFor(1));
        auto played = rig.TakePlayed();
        ASSERT_GE(played.size(), 2u);
        EXPECT_EQ(played[0], Note(0));
        EXPECT_EQ(played[1], Note(1));
        played.erase(played.begin(), played.begin() + 2);
        EXPECT_THAT(row.silences ? AfterAllNotesOff(played) : played, IsEmpty());
        EXPECT_EQ(rig.output->GetTickIndex(), 20u);
        EXPECT_FALSE(rig.output->PlaybackIsActive());
        EXPECT_FALSE(rig.clock.GetPlaybackIsArmed());
        EXPECT_EQ(disarms, 1);
        EXPECT_FALSE(rig.output->ArmPlayback());
        rig.output.reset();
        EXPECT_EQ(rig.stopped.Get(), 1);
        notify::callbackDispatcher.RemoveCallbacksForTarget(&disarms);
    }
}

TEST(MidiOutput, TheDisplayHearsOfClicksOnlyAndOfNoneFromBeforeADisarm) {
    OutputRig rig;
    Arrivals<std::uint32_t> heard;
    rig.downbeat = heard.Callback();
    rig.Start();
    rig.clock.Pulse(1);
    rig.output->DisarmPlayback();  // tick 0 is still being held back
    for (int i = 0; i < 30; ++i)
        rig.output->DecreaseGuiDelay();
    rig.Prime();
    rig.nextCycle = 28;  // after the four of the ring
    rig.clock.Arm();
    ASSERT_TRUE(rig.output->ArmPlayback());
    rig.output->ResetMidiOutput();
    rig.clock.Pulse(30);  // cycles 0 to 3, then 28 to 53
    EXPECT_TRUE(heard.WaitFor(2));
    rig.output.reset();
    const auto clicks = heard.Get();
    ASSERT_EQ(clicks.size(), 2u);
    EXPECT_EQ(clicks[0].value, 0u);
    EXPECT_EQ(clicks[1].value, 960u);
}

TEST(MidiOutput, TheDelayOfTheDisplayMovesInStepsBetweenItsLimitsAndIsTold) {
    OutputRig rig;
    std::vector<int> told;
    notify::guiDispatcher.SetReceiver({[&](int milliseconds) { told.push_back(milliseconds); }, {}});
    for (int i = 0; i < 4; ++i)
        rig.output->IncreaseGuiDelay();
    EXPECT_THAT(told, ElementsAre(230, 240, 250, 250));
    told.clear();
    for (int i = 0; i < 27; ++i)
        rig.output->DecreaseGuiDelay();
    EXPECT_EQ(told[0], 240);
    EXPECT_EQ(told[23], 10);
    EXPECT_EQ(told[26], 0);
    notify::guiDispatcher.SetReceiver({});
}

TEST(MidiOutput, MessagesOutsideTheSongGoToTheirTrack) {
    OutputRig rig;
    MidiOutput& output = *rig.output;
    using Values = std::map<std::uint16_t, std::uint8_t>;
    const Values volumes = {{0, 100}, {0x11, 90}}, pans = {{1, 0}, {0, 64}}, programs = {{0, 1}, {7, 2}};
    const struct {
        std::function<void()> send;
        std::vector<Bytes> played;
        std::size_t buffers;
    } rows[] = {
        {[&] { output.SendAllNotesOff(0x05); }, {{0xB5, 123, 0}, {0xB5, 121, 0}}, 2},
        {[&] { output.SetTrackPan(0x23, 64); }, {{0xBF, 10, 64}}, 1},
        {[&] { output.SetTrackBank(0x02, 3); }, {{0xB2, 0, 3}}, 1},
        {[&] { output.SetTrackProgramId(0x02, 9); }, {{0xC2, 9}}, 1},
        {[&] { output.SetAllTracksVolume(volumes); }, {{0xB0, 7, 100}, {0xBF, 7, 90}}, 2},
        {[&] { output.SetAllTracksPan(pans); }, {{0xB0, 10, 64}, {0xB1, 10, 0}}, 1},
        {[&] { output.SetAllTracksProgramId(programs); }, {{0xC0, 1}, {0xC7, 2}}, 1},
        {[&] { output.SetAllTracksVolume({}); }, {}, 0},
    };
    for (const auto& [send, played, buffers] : rows) {
        send();
        EXPECT_EQ(rig.device->GetBufferCount(), buffers);
        EXPECT_EQ(rig.TakePlayed(), played);
    }
    // 0x1003 is on port 256, which must not become port 0.
    for (const std::uint16_t track : {0x30, 0x1003, 0xFFFF}) {
        EXPECT_THROW(rig.output->SetTrackVolume(track, 1), std::out_of_range) << track;
        EXPECT_THROW(rig.output->SendAllNotesOff(track), std::out_of_range) << track;
        EXPECT_THROW(rig.output->SetAllTracksPan({{0x00, 1}, {track, 1}}), std::out_of_range) << track;
        EXPECT_THROW(rig.output->SetAllTracksProgramId({{0x00, 1}, {track, 1}}), std::out_of_range) << track;
    }
    EXPECT_THAT(rig.TakePlayed(), IsEmpty());
}

/// Ports that throw what a test tells them to.
struct BadPorts : MidiOutputPorts {
    std::function<void()> send;
    void SendMidiBuffer(MidiBuffer&) override { send(); }
    void RegisterMidiBuffer(std::shared_ptr<MidiBuffer>) override {}
};

struct BadOutput : MidiOutput {
    BadOutput(MidiClock& clock, std::recursive_mutex* hostMutex) : MidiOutput({}, {}, {}, {}, {}, clock, hostMutex) {
        Initialize(1);
    }
    ~BadOutput() override { ExitThreads(); }
    void CreateSynthOutput(const std::string&) override {}
    void CreateAudioUnitOutput(const zell::ptr_map<std::uint16_t, vemo_midi::VoiceTrack>&) override {}
    void CreateTarvikOutput() override {}
    MidiOutputPorts& GetPorts() override { return ports; }
    BadPorts ports;
};

TEST(MidiOutput, AnInvalidEventIsReportedByItsSenderAndOtherErrorsPassWithoutALock) {
    const std::map<std::uint16_t, std::uint8_t> track{{0, 1}};
    const std::pair<std::function<void(MidiOutput&)>, const char*> rows[] = {
        {[](MidiOutput& o) { o.AllNotesOff(); }, "InvalidVoiceEvent MidiOutput::AllNotesOff\n"},
        {[](MidiOutput& o) { o.AllCCsOff(); }, "InvalidVoiceEvent MidiOutput::AllCCsOff\n"},
        {[](MidiOutput& o) { o.SetTrackPan(0, 1); }, "InvalidVoiceEvent MidiOutput::InjectSingleEvent\n"},
        {[=](MidiOutput& o) { o.SetAllTracksPan(track); }, "InvalidVoiceEvent MidiOutput::SetAllTracksCc\n"},
        {[=](MidiOutput& o) { o.SetAllTracksProgramId(track); },
         "InvalidVoiceEvent MidiOutput::SetAllTracksProgramId\n"}};
    HandClock clock;
    std::recursive_mutex hostMutex;
    BadOutput output(clock, &hostMutex);
    ConsoleCapture console;
    for (const auto& [send, text] : rows) {
        output.ports.send = [] { throw InvalidVoiceEvent("odd"); };
        EXPECT_NO_THROW(send(output)) << text;
        EXPECT_EQ(console.Take(), text);
        output.ports.send = [] { throw std::runtime_error("device is gone"); };
        EXPECT_THROW(send(output), std::runtime_error) << text;
        MustEnd(text, [&] { std::lock_guard lock(output.GetMutex()); });
    }
    EXPECT_NO_THROW(output.SetChannelDrumMode(9, false));
    EXPECT_THROW(output.SetChannelDrumMode(9, true), zell::NotImplementedError);
    EXPECT_THROW(output.SetGlobalReverb(0), zell::NotImplementedError);
}

TEST(MidiOutput, TheTimeCodeCallbackHarmsNobody) {
    OutputRig rig;
    ExceptionCapture log;
    rig.output->DoTimeCodeCallback(1, 2, 3);
    std::vector<double> values;
    rig.output->SetTimeCodeCallback([&](double seconds, double next, double clockTime) {
        values = {seconds, next, clockTime};
        throw std::runtime_error("no time");
    });
    rig.output->DoTimeCodeCallback(1, 2, 3);
    EXPECT_THAT(values, ElementsAre(1, 2, 3));
    rig.output->SetTimeCodeCallback([](double, double, double) { throw 1; });
    rig.output->DoTimeCodeCallback(1, 2, 3);
    EXPECT_THAT(log.Take(),
                ElementsAre("midi/Sources/midi_output: no time", "midi/Sources/midi_output: Unknown exception."));
}

TEST(MidiOutput, AFailedSendIsLoggedAndTheNextClockSendsTheSameCycle) {
    OutputRig rig;
    ExceptionCapture log;
    rig.Start();
    rig.clock.Pulse();
    Layer::Instance().Fail(Fault::kOut, 7, 2);
    rig.clock.Pulse(2);
    EXPECT_THAT(rig.TakePlayed(), ElementsAre(Note(0)));
    const auto logged = log.Take();
    ASSERT_EQ(logged.size(), 2u);
    EXPECT_THAT(logged[0], StartsWith("midi/Sources/win32/midi_output_impl: "));
    EXPECT_THAT(logged[0], HasSubstr("calling midiStreamOut caused error 7, MMSYSERR_NOMEM memory allocation error."));
    rig.clock.Pulse(2);
    EXPECT_THAT(rig.TakePlayed(), ElementsAre(Note(1), Note(2)));
}

TEST(MidiOutput, AStreamThatKeepsABufferCostsThreeSecondsOnceAndTheShowGoesOn) {
    OutputRig rig(win32_layer::Delivery::kThread);
    ConsoleCapture console;
    rig.fill = [](MidiBuffer& buffer, int cycle) {
        if (cycle == 1)
            buffer.SetShouldSendAllNotesOff();
    };
    rig.Start();
    rig.clock.Pulse();
    Layer::Instance().HoldBuffers(1);  // the one that silences
    const auto begin = std::chrono::steady_clock::now();
    rig.clock.Pulse(3);
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(took, 3s);
    EXPECT_LT(took, 6s);
    EXPECT_THAT(rig.TakePlayed(), ElementsAre(Note(0), Note(1), Note(2), Note(3)));
    EXPECT_EQ(console.Take(),
              "midiStreamOutDone_ timed out without receiving a mom done message. Buffer allNotesOffBuffer data buffer "
              "0 will be quarantined.\n");
    rig.output->AllNotesOff();  // its new stream buffer silences as the one before
    EXPECT_THAT(AfterAllNotesOff(rig.TakePlayed()), IsEmpty());

    rig.output->DisarmPlayback();
    EXPECT_EQ(Layer::Instance().GetCounters().preparedHeaders, 22);
    Layer::Instance().ReleaseHeldBuffers();
    MustEnd("the return of the held buffer", [&] {
        while (Layer::Instance().GetCounters().preparedHeaders > 21)
            rig.output->DisarmPlayback();
    });
}

TEST(MidiOutput, ACleanUpErrorNeitherLosesTheStopNorAPendingReset) {
    for (const bool onClockThread : {true, false}) {
        SCOPED_TRACE(onClockThread ? "clock thread" : "host thread");
        OutputRig rig;
        ExceptionCapture log;
        std::atomic<int> downbeats = 0;
        rig.downbeat = [&](std::uint32_t) { ++downbeats; };
        rig.caesuraTick = onClockThread ? 0 : OutputRig::kNoTick;
        rig.Start();
        MidiBufferWin32& buffer = rig.PlayBuffer();
        buffer.QuarantineDataBuffer(2, buffer.GetDataBuffer(0).GetPreparedOutputHandle());
        Layer::Instance().Fail(Fault::kUnprepare, 5, 1);
        rig.clock.Pulse();  // a click, to be heard in 0.22 s
        if (onClockThread) {
            EXPECT_TRUE(rig.stopped.WaitFor(1));
            EXPECT_THAT(log.Take(), ElementsAre(StartsWith("midi/Sources/win32/midi_output_impl: ")));
        } else {
            EXPECT_THROW(rig.output->DisarmPlayback(), MidiImplementationError);
        }
        EXPECT_FALSE(rig.output->PlaybackIsActive());
        std::this_thread::sleep_for(300ms);
        EXPECT_EQ(downbeats, 0);
        rig.output->DisarmPlayback();
        EXPECT_FALSE(buffer.GetHasQuarantinedDataBuffers());
    }
}

TEST(MidiOutput, ADeviceIsChosenByItsIndexOrItsName) {
    OutputRig rig;
    const auto strings = std::make_shared<VirtualMidiOutput>(L"Strings");
    const auto longName = std::make_shared<VirtualMidiOutput>(L"A name of exactly 32 characters.");
    const auto second = std::make_shared<VirtualMidiOutput>(L"Strings");
    const std::vector<std::shared_ptr<VirtualMidiOutput>> devices = {rig.device, strings, longName, second};
    for (std::size_t i = 1; i < devices.size(); ++i)
        Layer::Instance().AddOutput(devices[i]);
    const std::pair<const char*, std::size_t> rows[] = {
        {"1", 1},  {"", 0},        {"003", 3}, {"Strings", 1}, {"A name of exactly 32 characters.", 2},
        {"-1", 0}, {"strings", 0}, {"2", 2},   {" 1", 0},      {"0", 0}};
    for (const auto& [name, index] : rows) {
        rig.output->CreateSynthOutput(name);
        for (const auto& device : devices)
            device->Clear();
        rig.output->SetTrackVolume(0, 1);
        for (std::size_t i = 0; i < devices.size(); ++i)
            EXPECT_EQ(devices[i]->GetPlayed().size(), i == index ? 1u : 0u) << name << " on device " << i;
        EXPECT_EQ(Layer::Instance().GetCounters().openStreams, 1) << name;
        EXPECT_EQ(Layer::Instance().GetCounters().preparedHeaders, 21) << name;
    }
    for (const char* name : {"4", "4294967295", "4294967296", "99999999999999999999"})
        EXPECT_THROW(rig.output->CreateSynthOutput(name), MidiDeviceUnavailable) << name;
    rig.device->Clear();
    rig.output->SetTrackVolume(0, 2);  // what was open before still is
    EXPECT_THAT(rig.TakePlayed(), ElementsAre(Bytes{0xB0, 7, 2}));
}

TEST(MidiOutput, AConnectionThatFailsHalfwayLeavesNothingDangling) {
    for (const Fault fault : {Fault::kPrepare, Fault::kRestart, Fault::kUnprepare}) {
        SCOPED_TRACE(static_cast<int>(fault));
        OutputRig rig;
        ExceptionCapture log;
        Layer::Instance().Fail(fault, 7, 1);
        if (fault == Fault::kUnprepare) {  // of the stream that is left: logged, and it goes all the same
            rig.output->CreateSynthOutput("0");
            EXPECT_EQ(log.Take().size(), 1u);
        } else {
            EXPECT_THROW(rig.output->CreateSynthOutput("0"), MidiImplementationError);
        }
        EXPECT_EQ(Layer::Instance().GetCounters().openStreams, 1);
        if (fault == Fault::kPrepare) {
            EXPECT_THROW(rig.output->AllNotesOff(), std::logic_error);
        }
        rig.output->CreateSynthOutput("0");
        rig.output->AllNotesOff();
        EXPECT_THAT(AfterAllNotesOff(rig.TakePlayed()), IsEmpty());
        Layer::Instance().Fail(Fault::kUnprepare, 7, 1);
        rig.output.reset();
        EXPECT_EQ(log.Take().size(), 1u);  // logged by the destructor, not thrown
        EXPECT_EQ(Layer::Instance().GetCounters().openStreams, 0);
    }
}

}  // namespace
