#include <gtest/gtest.h>
#include <windows.h>

#include <mmsystem.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <latch>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_output.h"

using namespace std::chrono_literals;
using win32_layer::Delivery;
using win32_layer::Layer;
using win32_layer::VirtualMidiOutput;

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr DWORD kNoteOn = 0x00643C90;  // 90 3C 64
constexpr auto kPatience = 10s;

/// A stream buffer of short events, each given by its event word.
struct Buffer {
    explicit Buffer(const std::vector<DWORD>& events) {
        for (const DWORD event : events)
            words.insert(words.end(), {0, 0, event});
        header.lpData = reinterpret_cast<LPSTR>(words.data());
        header.dwBufferLength = header.dwBytesRecorded = static_cast<DWORD>(words.size() * sizeof(DWORD));
    }
    std::vector<DWORD> words;
    MIDIHDR header{};
};

class MidiStreamLayer : public testing::Test {
protected:
    struct Call {
        UINT message;
        LPMIDIHDR header;
        DWORD flags;
        std::thread::id thread;
    };

    MidiStreamLayer() {
        Layer::Instance().Reset();
        Layer::Instance().AddOutput(device);
    }

    ~MidiStreamLayer() override {
        if (stream)
            midiStreamClose(stream);
        Layer::Instance().Reset();
        EXPECT_EQ(Layer::Instance().GetCounters().openStreams, 0);
        EXPECT_EQ(Layer::Instance().GetCounters().queuedHeaders, 0);
    }

    MMRESULT Open(UINT index = 0) {
        return midiStreamOpen(&stream, &index, 1, reinterpret_cast<DWORD_PTR>(&OnMessage),
                              reinterpret_cast<DWORD_PTR>(this), CALLBACK_FUNCTION);
    }

    void OpenAndRestart() {
        ASSERT_EQ(Open(), 0u);
        ASSERT_EQ(midiStreamRestart(stream), 0u);
    }

    /// A test whose onMessage refers to its own variables closes before they go.
    MMRESULT Close() { return midiStreamClose(std::exchange(stream, nullptr)); }

    MMRESULT Prepare(Buffer& buffer) { return midiOutPrepareHeader(AsOutput(), &buffer.header, sizeof(MIDIHDR)); }
    MMRESULT Unprepare(Buffer& buffer) { return midiOutUnprepareHeader(AsOutput(), &buffer.header, sizeof(MIDIHDR)); }
    MMRESULT Out(Buffer& buffer) { return midiStreamOut(stream, &buffer.header, sizeof(MIDIHDR)); }
    MMRESULT PrepareAndOut(Buffer& buffer) {
        const MMRESULT result = Prepare(buffer);
        return result ? result : Out(buffer);
    }
    HMIDIOUT AsOutput() const { return reinterpret_cast<HMIDIOUT>(stream); }

    bool WaitForDone(std::size_t count) {
        std::unique_lock lock(mutex);
        return arrived.wait_for(lock, kPatience, [&] { return CountDone() >= count; });
    }

    std::vector<UINT> Messages() {
        const std::lock_guard lock(mutex);
        std::vector<UINT> messages;
        for (const Call& call : calls)
            messages.push_back(call.message);
        return messages;
    }

    std::size_t CountDone() const {
        return static_cast<std::size_t>(
            std::count_if(calls.begin(), calls.end(), [](const Call& call) { return call.message == MOM_DONE; }));
    }

    std::vector<Bytes> Played() const {
        std::vector<Bytes> played;
        for (const auto& message : device->GetPlayed())
            played.push_back(message.bytes);
        return played;
    }

    std::shared_ptr<VirtualMidiOutput> device = std::make_shared<VirtualMidiOutput>(L"one");
    HMIDISTRM stream = nullptr;
    std::function<void(UINT, LPMIDIHDR)> onMessage;  // set before the stream is open
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<Call> calls;

private:
    static void CALLBACK OnMessage(HMIDIOUT, UINT message, DWORD_PTR instance, DWORD_PTR parameter, DWORD_PTR) {
        auto& self = *reinterpret_cast<MidiStreamLayer*>(instance);
        const auto header = reinterpret_cast<LPMIDIHDR>(parameter);
        {
            const std::lock_guard lock(self.mutex);
            self.calls.push_back({message, header, header ? header->dwFlags : 0, std::this_thread::get_id()});
            self.arrived.notify_all();
        }
        if (self.onMessage)
            self.onMessage(message, header);
    }
};

TEST_F(MidiStreamLayer, AStreamOpensPausedAndPlaysWhatWaitedInOrderOnceRestarted) {
    Layer::Instance().SetDelivery(Delivery::kInline);
    Buffer first({kNoteOn}), second({0x00003C80});
    ASSERT_EQ(Open(), 0u);
    ASSERT_EQ(PrepareAndOut(first), 0u);
    ASSERT_EQ(PrepareAndOut(second), 0u);
    EXPECT_EQ(first.header.dwFlags, DWORD{MHDR_PREPARED | MHDR_INQUEUE | MHDR_ISSTRM});
    EXPECT_TRUE(Played().empty());
    ASSERT_EQ(midiStreamRestart(stream), 0u);

    EXPECT_EQ(Played(), (std::vector<Bytes>{{0x90, 0x3C, 0x64}, {0x80, 0x3C, 0x00}}));
    EXPECT_EQ(first.header.dwFlags, DWORD{MHDR_PREPARED | MHDR_DONE | MHDR_ISSTRM});
    EXPECT_EQ(device->GetPlayed()[1].buffer, 1u);
    EXPECT_EQ(Messages(), (std::vector<UINT>{MOM_OPEN, MOM_DONE, MOM_DONE}));
    midiStreamStop(stream);  // paused again
    ASSERT_EQ(Out(first), 0u);
    EXPECT_EQ(first.header.dwFlags, DWORD{MHDR_PREPARED | MHDR_INQUEUE | MHDR_ISSTRM});
    EXPECT_EQ(Close(), 0u);  // gives the buffer back before it goes
}

TEST_F(MidiStreamLayer, ASendOfABadBufferIsRefusedAndLeavesItAsItWas) {
    struct Row {
        const char* what;
        std::function<void(MIDIHDR&)> change;
        UINT headerBytes;
        MMRESULT result;
    };
    const Row rows[] = {
        {"not prepared", [](MIDIHDR& h) { h.dwFlags = MHDR_ISSTRM; }, sizeof(MIDIHDR), 64},
        {"queued", [](MIDIHDR& h) { h.dwFlags |= MHDR_INQUEUE; }, sizeof(MIDIHDR), 65},
        {"short header", [](MIDIHDR&) {}, sizeof(MIDIHDR) - 1, 11},
        {"no length", [](MIDIHDR& h) { h.dwBufferLength = h.dwBytesRecorded = 0; }, sizeof(MIDIHDR), 11},
        {"more recorded than there is", [](MIDIHDR& h) { h.dwBytesRecorded = 13; }, sizeof(MIDIHDR), 11},
        {"no data", [](MIDIHDR& h) { h.lpData = nullptr; }, sizeof(MIDIHDR), 11},
        {"64 KB", [](MIDIHDR& h) { h.dwBufferLength = 0x10000; }, sizeof(MIDIHDR), 11},
        {"nothing recorded", [](MIDIHDR& h) { h.dwBytesRecorded = 0; }, sizeof(MIDIHDR), 0},
        {"good", [](MIDIHDR&) {}, sizeof(MIDIHDR), 0}};
    Layer::Instance().SetDelivery(Delivery::kInline);
    OpenAndRestart();
    for (const Row& row : rows) {
        Buffer buffer({kNoteOn});
        Prepare(buffer);
        row.change(buffer.header);
        const DWORD flags = buffer.header.dwFlags;
        EXPECT_EQ(midiStreamOut(stream, &buffer.header, row.headerBytes), row.result) << row.what;
        EXPECT_EQ(buffer.header.dwFlags, row.result ? flags : DWORD{flags | MHDR_DONE | MHDR_ISSTRM}) << row.what;
    }
    EXPECT_EQ(midiStreamOut(stream, nullptr, sizeof(MIDIHDR)), 11u);
    EXPECT_EQ(Layer::Instance().GetCounters().streamOuts, 2u);
}

TEST_F(MidiStreamLayer, AHandleThatIsNotOpenIsRefusedByEveryCall) {
    ASSERT_EQ(Open(), 0u);
    const HMIDISTRM closed = stream;
    ASSERT_EQ(midiStreamClose(closed), 0u);
    ASSERT_EQ(Open(), 0u);  // must not come back under the old handle
    Buffer buffer({kNoteOn});
    for (const HMIDISTRM bad : {closed, HMIDISTRM{}, reinterpret_cast<HMIDISTRM>(DWORD_PTR{0x123456})}) {
        const auto output = reinterpret_cast<HMIDIOUT>(bad);
        EXPECT_EQ(midiStreamOut(bad, &buffer.header, sizeof(MIDIHDR)), 5u);
        EXPECT_EQ(midiStreamRestart(bad), 5u);
        EXPECT_EQ(midiStreamStop(bad), 5u);
        EXPECT_EQ(midiStreamClose(bad), 5u);
        EXPECT_EQ(midiOutPrepareHeader(output, &buffer.header, sizeof(MIDIHDR)), 5u);
        EXPECT_EQ(midiOutUnprepareHeader(output, &buffer.header, sizeof(MIDIHDR)), 5u);
    }
}

TEST_F(MidiStreamLayer, AnOpenIsRefusedWithThePlatformsReason) {
    struct Refusing : VirtualMidiOutput {
        using VirtualMidiOutput::VirtualMidiOutput;
        bool Open() override { return false; }
    };
    Layer::Instance().AddOutput(std::make_shared<Refusing>(L"refusing"));
    UINT zero = 0, one = 1, two = 2;
    const HMIDISTRM before = reinterpret_cast<HMIDISTRM>(DWORD_PTR{1});
    const struct {
        LPUINT index;
        DWORD count, flags;
        MMRESULT result;
    } rows[] = {{&two, 1, CALLBACK_NULL, 2},     {&one, 1, CALLBACK_NULL, 4},   {&zero, 1, CALLBACK_EVENT, 10},
                {&zero, 1, CALLBACK_WINDOW, 10}, {&zero, 0, CALLBACK_NULL, 11}, {nullptr, 1, CALLBACK_NULL, 11}};
    for (const auto& row : rows) {
        HMIDISTRM handle = before;
        EXPECT_EQ(midiStreamOpen(&handle, row.index, row.count, 0, 0, row.flags), row.result) << row.result;
        EXPECT_EQ(handle, nullptr) << row.result;
    }
    EXPECT_EQ(midiStreamOpen(nullptr, &zero, 1, 0, 0, CALLBACK_NULL), 11u);

    HMIDISTRM second = nullptr;
    ASSERT_EQ(Open(), 0u);
    Layer::Instance().SetExclusive(device, true);
    EXPECT_EQ(midiStreamOpen(&second, &zero, 1, 0, 0, CALLBACK_NULL), 4u);
    Layer::Instance().SetExclusive(device, false);
    EXPECT_EQ(midiStreamOpen(&second, &zero, 1, 0, 0, CALLBACK_NULL), 0u);
    EXPECT_EQ(midiStreamClose(second), 0u);
    Layer::Instance().Reset();  // no devices at all
    EXPECT_EQ(midiOutGetNumDevs(), 0u);
    EXPECT_EQ(midiStreamOpen(&second, &zero, 1, 0, 0, CALLBACK_NULL), 2u);
}

TEST_F(MidiStreamLayer, PreparingTwiceAndUnpreparingWhatIsNotAreHarmlessButAQueuedHeaderStaysPrepared) {
    Buffer buffer({kNoteOn});
    buffer.header.dwBufferLength = buffer.header.dwBytesRecorded = 0;  // longer only when it is sent
    ASSERT_EQ(Open(), 0u);
    EXPECT_EQ(Unprepare(buffer), 0u);
    EXPECT_EQ(Prepare(buffer), 0u);
    EXPECT_EQ(Prepare(buffer), 0u);
    EXPECT_EQ(Layer::Instance().GetCounters().preparedHeaders, 1);
    buffer.header.dwBufferLength = buffer.header.dwBytesRecorded = 12;
    EXPECT_EQ(Out(buffer), 0u);
    EXPECT_EQ(Unprepare(buffer), 65u);
    EXPECT_EQ(Out(buffer), 65u);
    EXPECT_EQ(midiStreamStop(stream), 0u);
    EXPECT_EQ(Unprepare(buffer), 0u);
    EXPECT_EQ(Layer::Instance().GetCounters().preparedHeaders, 0);
}

TEST_F(MidiStreamLayer, DoneArrivesOnAThreadOfTheStreamsWithNoLockHeldAndTheHeaderFreeToBeSentAgain) {
    Buffer buffer({kNoteOn});
    int left = 3;
    std::latch over(3);
    std::vector<MMRESULT> results;
    onMessage = [&](UINT message, LPMIDIHDR) {
        if (message != MOM_DONE)
            return;
        // Another thread gets through the layer meanwhile, and so does this one.
        std::thread([&] { Layer::Instance().GetCounters(); }).join();
        results.push_back(Unprepare(buffer));
        results.push_back(Prepare(buffer));
        if (--left > 0)
            results.push_back(Out(buffer));
        over.count_down();
    };
    OpenAndRestart();
    ASSERT_EQ(PrepareAndOut(buffer), 0u);
    over.wait();
    ASSERT_EQ(Close(), 0u);

    EXPECT_EQ(results, std::vector<MMRESULT>(8, 0u));
    EXPECT_EQ(Played().size(), 3u);
    EXPECT_EQ(Messages(), (std::vector<UINT>{MOM_OPEN, MOM_DONE, MOM_DONE, MOM_DONE, MOM_CLOSE}));
    for (const Call& call : calls)
        if (call.message == MOM_DONE) {
            EXPECT_NE(call.thread, std::this_thread::get_id());
            EXPECT_EQ(call.flags, DWORD{MHDR_PREPARED | MHDR_DONE | MHDR_ISSTRM});
        }
}

TEST_F(MidiStreamLayer, InlineDeliveryHappensInsideTheCallOneBufferAfterTheOther) {
    Layer::Instance().SetDelivery(Delivery::kInline);
    Buffer buffer({kNoteOn});
    int depth = 0, deepest = 0, left = 3;
    onMessage = [&](UINT message, LPMIDIHDR) {
        deepest = std::max(deepest, ++depth);
        if (message == MOM_DONE && --left > 0)
            Out(buffer);
        --depth;
    };
    OpenAndRestart();
    ASSERT_EQ(PrepareAndOut(buffer), 0u);
    EXPECT_EQ(left, 0);
    EXPECT_EQ(deepest, 1);
    EXPECT_EQ(calls.back().thread, std::this_thread::get_id());
    EXPECT_EQ(Close(), 0u);
}

TEST_F(MidiStreamLayer, StopGivesBackEveryBufferUnplayedBeforeItReturns) {
    for (const Delivery delivery : {Delivery::kThread, Delivery::kInline}) {
        Layer::Instance().SetDelivery(delivery);
        Buffer held({kNoteOn}), waiting({kNoteOn}), later({kNoteOn});
        calls.clear();
        ASSERT_EQ(Open(), 0u);
        Layer::Instance().HoldBuffers(1);
        for (Buffer* buffer : {&held, &waiting, &later}) {
            ASSERT_EQ(PrepareAndOut(*buffer), 0u);
        }
        ASSERT_EQ(midiStreamStop(stream), 0u);
        EXPECT_EQ(Messages(), (std::vector<UINT>{MOM_OPEN, MOM_DONE, MOM_DONE, MOM_DONE}));
        for (Buffer* buffer : {&held, &waiting, &later})
            EXPECT_EQ(Unprepare(*buffer), 0u);
        ASSERT_EQ(midiStreamRestart(stream), 0u);
        ASSERT_EQ(Close(), 0u);
        EXPECT_TRUE(Played().empty());
    }
}

TEST_F(MidiStreamLayer, StopComesBackThoughACallbackWaitsForTheStopper) {
    std::latch inCallback(1), stopped(1);
    onMessage = [&](UINT message, LPMIDIHDR) {
        if (message == MOM_DONE && !inCallback.try_wait()) {
            inCallback.count_down();
            stopped.wait();
        }
    };
    Buffer first({kNoteOn}), second({kNoteOn});
    OpenAndRestart();
    ASSERT_EQ(PrepareAndOut(first), 0u);
    inCallback.wait();
    ASSERT_EQ(PrepareAndOut(second), 0u);
    EXPECT_EQ(midiStreamStop(stream), 0u);
    EXPECT_EQ(Unprepare(second), 65u);
    stopped.count_down();
    EXPECT_TRUE(WaitForDone(2));
    EXPECT_EQ(Close(), 0u);
    EXPECT_EQ(Played().size(), 1u);
}

TEST_F(MidiStreamLayer, CloseWaitsForARunningCallbackAndIsTheEnd) {
    for (const Delivery delivery : {Delivery::kThread, Delivery::kInline})
        for (const bool anotherIsHeld : {false, true}) {
            Layer::Instance().SetDelivery(delivery);
            calls.clear();
            std::latch inCallback(1);
            std::atomic<bool> callbackOver{false};
            onMessage = [&](UINT message, LPMIDIHDR) {
                if (message != MOM_DONE || inCallback.try_wait())
                    return;
                inCallback.count_down();
                while (midiStreamRestart(stream) == 0)  // until the close has begun
                    std::this_thread::yield();
                callbackOver = true;
            };
            OpenAndRestart();
            auto first = std::make_unique<Buffer>(std::vector<DWORD>{kNoteOn});
            auto held = std::make_unique<Buffer>(std::vector<DWORD>{kNoteOn});
            Prepare(*first);
            Prepare(*held);
            if (anotherIsHeld) {
                Layer::Instance().HoldBuffers(1);
                ASSERT_EQ(Out(*held), 0u);
            }
            std::thread sender([&] { EXPECT_EQ(Out(*first), 0u); });
            inCallback.wait();
            EXPECT_EQ(midiStreamClose(stream), 0u);
            EXPECT_TRUE(callbackOver);
            first.reset();  // the address sanitizer sees it when the layer still touches one
            held.reset();
            std::vector<UINT> expected{MOM_OPEN, MOM_DONE, MOM_DONE, MOM_CLOSE};
            if (!anotherIsHeld)
                expected.erase(expected.begin() + 1);
            EXPECT_EQ(Messages(), expected);
            sender.join();
            stream = nullptr;
        }
}

TEST_F(MidiStreamLayer, CloseInsideACallbackGivesBackTheRestAndDoesNotWaitForItself) {
    for (const Delivery delivery : {Delivery::kThread, Delivery::kInline})
        for (const UINT closeAt : {UINT{MOM_DONE}, UINT{MOM_POSITIONCB}}) {
            Layer::Instance().SetDelivery(delivery);
            Buffer first({0x42000000, kNoteOn}), second({kNoteOn});
            std::atomic<bool> closed{false};
            std::latch over(1);
            calls.clear();
            device->Clear();
            onMessage = [&](UINT message, LPMIDIHDR) {
                if (message == closeAt && !closed.exchange(true)) {
                    EXPECT_EQ(midiStreamClose(stream), 0u);
                    over.count_down();
                }
            };
            ASSERT_EQ(Open(), 0u);
            ASSERT_EQ(PrepareAndOut(first), 0u);
            ASSERT_EQ(PrepareAndOut(second), 0u);
            ASSERT_EQ(midiStreamRestart(stream), 0u);
            over.wait();
            EXPECT_EQ(Messages(), (std::vector<UINT>{MOM_OPEN, MOM_POSITIONCB, MOM_DONE, MOM_DONE, MOM_CLOSE}));
            EXPECT_EQ(Played().size(), closeAt == MOM_DONE ? 1u : 0u);
            EXPECT_EQ(midiStreamClose(stream), 5u);
            stream = nullptr;
        }
}

TEST_F(MidiStreamLayer, SendsStopsAndACloseAtOnceGiveEachAcceptedBufferBackExactlyOnce) {
    for (const Delivery delivery : {Delivery::kThread, Delivery::kInline})
        for (int round = 0; round < 50; ++round) {
            Layer::Instance().SetDelivery(delivery);
            calls.clear();
            OpenAndRestart();
            std::latch start(3);
            std::size_t accepted = 0;
            std::vector<Buffer> buffers(200, Buffer({kNoteOn}));
            std::thread sender([&] {
                start.arrive_and_wait();
                for (Buffer& buffer : buffers) {
                    buffer.header.lpData = reinterpret_cast<LPSTR>(buffer.words.data());
                    if (PrepareAndOut(buffer) == 0)
                        ++accepted;
                }
            });
            std::thread stopper([&] {
                start.arrive_and_wait();
                midiStreamStop(stream);
                midiStreamRestart(stream);
            });
            start.arrive_and_wait();
            midiStreamClose(stream);
            const std::size_t atClose = CountDone();  // without the lock: nobody calls back any more
            stopper.join();
            sender.join();
            EXPECT_EQ(CountDone(), atClose);
            EXPECT_EQ(atClose, accepted);
            stream = nullptr;
        }
}

TEST_F(MidiStreamLayer, EachKindOfEventPlaysWhatItHoldsAndAMalformedOneNothing) {
    struct Row {
        const char* what;
        std::vector<DWORD> words;
        std::vector<Bytes> played;
        std::vector<DWORD> callbacksAt = {};
        int tailBytes = 0;  // beyond the last whole word
    };
    const Row rows[] = {
        {"three bytes", {0, 0, 0x00643C90}, {{0x90, 0x3C, 0x64}}},
        {"program, pressure", {0, 0, 0x000005C1, 0, 0, 0x000040D2}, {{0xC1, 0x05}, {0xD2, 0x40}}},
        {"system messages",
         {0, 0, 0x0000F8, 0, 0, 0x0033F1, 0, 0, 0x0102F2},
         {{0xF8}, {0xF1, 0x33}, {0xF2, 0x02, 0x01}}},
        {"a delay", {960, 0, 0x00643C90, 1, 0, 0x00003C80}, {{0x90, 0x3C, 0x64}, {0x80, 0x3C, 0x00}}},
        {"no status", {0, 0, 0x00643C40, 0, 0, 0x000000F0}, {}},
        {"tempo and marker", {0, 0, 0x0107A120, 0, 0, 0x42000000, 0, 0, 0x000005C1}, {{0xC1, 0x05}}, {12}},
        {"a note that is a marker", {0, 0, 0x40643C90}, {{0x90, 0x3C, 0x64}}, {0}},
        {"long, padded",
         {0, 0, 0x80000005, 0x7F7F7FF0, 0x000000F7, 0, 0, 0x000005C1},
         {{0xF0, 0x7F, 0x7F, 0x7F, 0xF7}, {0xC1, 0x05}}},
        {"long comment", {0, 0, 0x82000004, 0x00434241, 0, 0, 0x000005C1}, {{0xC1, 0x05}}},
        {"long beyond the end", {0, 0, 0x000005C1, 0, 0, 0x80FFFFFF, 0x7F7F7FF0}, {{0xC1, 0x05}}},
        {"cut short", {0, 0, 0x000005C1, 0, 0, 0x00643C90}, {{0xC1, 0x05}}, {}, -1},
        {"too short for one", {0, 0}, {}}};
    Layer::Instance().SetDelivery(Delivery::kInline);
    std::vector<DWORD> callbacksAt;
    onMessage = [&](UINT message, LPMIDIHDR header) {
        if (message == MOM_POSITIONCB)
            callbacksAt.push_back(header->dwOffset);
    };
    OpenAndRestart();
    for (const Row& row : rows) {
        device->Clear();
        callbacksAt.clear();
        // A block of exactly that size, so that reading beyond it is seen.
        const std::size_t bytes = row.words.size() * sizeof(DWORD) + static_cast<std::size_t>(row.tailBytes);
        const auto data = std::make_unique<char[]>(bytes);
        std::memcpy(data.get(), row.words.data(), bytes);
        Buffer buffer({});
        buffer.header.lpData = data.get();
        buffer.header.dwBufferLength = buffer.header.dwBytesRecorded = static_cast<DWORD>(bytes);
        Prepare(buffer);
        EXPECT_EQ(Out(buffer), 0u) << row.what;
        EXPECT_EQ(Played(), row.played) << row.what;
        EXPECT_EQ(callbacksAt, row.callbacksAt) << row.what;
        EXPECT_EQ(device->GetBufferCount(), 1u) << row.what;
    }
    EXPECT_EQ(Close(), 0u);
}

TEST_F(MidiStreamLayer, ADelayedReturnIsPlayedAtOnceAndComesNoSoonerUnlessTheStreamCloses) {
    for (const Delivery delivery : {Delivery::kThread, Delivery::kInline}) {
        Layer::Instance().SetDelivery(delivery);
        Buffer buffer({kNoteOn});
        calls.clear();
        OpenAndRestart();
        Prepare(buffer);
        Layer::Instance().DelayReturns(30ms);
        const auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(Out(buffer), 0u);
        ASSERT_TRUE(WaitForDone(1));
        EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);

        Layer::Instance().DelayReturns(1h);
        ASSERT_EQ(Out(buffer), 0u);
        ASSERT_EQ(midiStreamStop(stream), 0u);  // does not wait an hour
        EXPECT_EQ(Unprepare(buffer), 65u);
        ASSERT_EQ(Close(), 0u);
        EXPECT_EQ(CountDone(), 2u);
        EXPECT_EQ(buffer.header.dwFlags & MHDR_INQUEUE, 0u);
    }
}

}  // namespace
