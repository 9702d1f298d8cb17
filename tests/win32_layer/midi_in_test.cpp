#include <gmock/gmock.h>
#include <windows.h>

#include <mmsystem.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/midi/patience.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_input.h"

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using win32_layer::Fault;
using win32_layer::Layer;
using win32_layer::VirtualMidiInput;

using Bytes = std::vector<std::uint8_t>;

std::string Hex(const Bytes& bytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const std::uint8_t byte : bytes)
        text += {kDigits[byte >> 4], kDigits[byte & 15]};
    return text;
}

/// An input that keeps what it hears, as text: "903C40" for a message, without the zeros at its end, "!..." for one
/// that was lost; "L..." for a filled buffer, "E..." for one that was broken off; "open" and "close".
class MidiInLayer : public testing::Test {
protected:
    MidiInLayer() {
        Layer::Instance().Reset();
        Layer::Instance().AddInput(device_);
    }
    ~MidiInLayer() override {
        Close();
        Layer::Instance().Reset();
        EXPECT_EQ(Layer::Instance().GetCounters().openInputs, 0);
        EXPECT_EQ(Layer::Instance().GetCounters().preparedHeaders, 0);
        EXPECT_EQ(Layer::Instance().GetCounters().queuedHeaders, 0);
    }

    MMRESULT Open() {
        return midiInOpen(&input_, 0, reinterpret_cast<DWORD_PTR>(&OnMessage), reinterpret_cast<DWORD_PTR>(this),
                          CALLBACK_FUNCTION);
    }
    void OpenAndStart() {
        ASSERT_EQ(Open(), 0u);
        ASSERT_EQ(midiInStart(input_), 0u);
        const std::lock_guard lock(mutex_);
        heard_.clear();
    }
    void AddBuffers(std::size_t count, std::size_t bytes) {
        buffers_.resize(count);
        for (Buffer& buffer : buffers_) {
            buffer.bytes.resize(bytes);
            buffer.header.lpData = buffer.bytes.data();
            buffer.header.dwBufferLength = static_cast<DWORD>(bytes);
            ASSERT_EQ(midiInPrepareHeader(input_, &buffer.header, sizeof(MIDIHDR)), 0u);
            ASSERT_EQ(midiInAddBuffer(input_, &buffer.header, sizeof(MIDIHDR)), 0u);
        }
    }
    void Close() {
        midiInReset(input_);
        for (Buffer& buffer : buffers_)
            EXPECT_EQ(midiInUnprepareHeader(input_, &buffer.header, sizeof(MIDIHDR)), 0u);
        buffers_.clear();
        midiInClose(input_);
        input_ = nullptr;
    }
    /// What comes of this and everything sent before, up to an active sensing byte.
    std::vector<std::string> Hear(const Bytes& sent = {}) {
        if (!sent.empty())
            device_->Send(sent);
        device_->Send({0xFE});
        WaitToHear("FE");
        const std::lock_guard lock(mutex_);
        heard_.pop_back();
        return std::exchange(heard_, {});
    }

    void WaitToHear(const std::string& last) {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, 20s, [&] { return !heard_.empty() && heard_.back() == last; })) << last;
    }

    static void CALLBACK OnMessage(HMIDIIN, UINT message, DWORD_PTR instance, DWORD_PTR parameter, DWORD_PTR time) {
        auto& test = *reinterpret_cast<MidiInLayer*>(instance);
        EXPECT_EQ(test.running_.fetch_add(1), test.nesting_);
        std::string text;
        if (message == MIM_DATA || message == MIM_ERROR) {
            Bytes bytes;
            for (DWORD_PTR rest = parameter; rest != 0 || bytes.empty(); rest >>= 8)
                bytes.push_back(static_cast<std::uint8_t>(rest));
            text = (message == MIM_ERROR ? "!" : "") + Hex(bytes);
        } else if (message == MIM_LONGDATA || message == MIM_LONGERROR) {
            const auto& header = *reinterpret_cast<const MIDIHDR*>(parameter);
            EXPECT_EQ(header.dwFlags & (MHDR_DONE | MHDR_INQUEUE), DWORD{MHDR_DONE});
            const auto* const first = reinterpret_cast<const std::uint8_t*>(header.lpData);
            text = (message == MIM_LONGDATA ? "L" : "E") + Hex({first, first + header.dwBytesRecorded});
        } else {
            text = message == MIM_OPEN ? "open" : "close";
        }
        {
            const std::lock_guard lock(test.mutex_);
            test.heard_.push_back(text);
            test.time_ = time;
            test.changed_.notify_all();
        }
        if (message == MIM_DATA && test.onData_)
            test.onData_();
        if ((message == MIM_LONGDATA || message == MIM_LONGERROR) && test.onBuffer_)
            test.onBuffer_();
        --test.running_;
    }

    struct Buffer {
        MIDIHDR header{};
        std::vector<char> bytes;
    };
    const std::shared_ptr<VirtualMidiInput> device_ = std::make_shared<VirtualMidiInput>(L"Keys");
    HMIDIIN input_ = nullptr;
    std::vector<Buffer> buffers_;
    std::function<void()> onData_;  // both set before the input is open
    std::function<void()> onBuffer_;
    std::atomic<int> running_{0};
    std::atomic<int> nesting_{0};  // callbacks that may run below a new one
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> heard_;  // guarded by mutex_
    DWORD_PTR time_ = 0;              // of the latest; likewise
};

TEST_F(MidiInLayer, MessagesAreWholeHoweverTheBytesCome) {
    OpenAndStart();
    // Data without status, running status, real time inside, system common that ends it.
    const Bytes bytes = {0x40, 0x90, 0x3C, 0x40, 0x3C, 0xF8, 0x00, 0xC5, 0x07, 0x08, 0xE0, 0x01, 0xF1, 0x23, 0x02,
                         0xB0, 0x07, 0xF6, 0x64, 0xF2, 0x01, 0xFA, 0x02, 0x03, 0xF7, 0x04, 0xD0, 0x55, 0xF7};
    const std::vector<std::string> messages = {"903C40", "F8", "903C", "C507",   "C508",
                                               "F123",   "F6", "FA",   "F20102", "D055"};
    EXPECT_EQ(Hear(bytes), messages);
    for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
        const auto middle = bytes.begin() + static_cast<std::ptrdiff_t>(cut);
        device_->Send({bytes.begin(), middle});
        device_->Send({middle, bytes.end()});
    }
    for (const std::uint8_t byte : bytes)
        device_->Send({byte});
    const auto heard = Hear();
    ASSERT_EQ(heard.size(), messages.size() * (bytes.size() + 2));
    for (std::size_t i = 0; i < heard.size(); ++i)
        EXPECT_EQ(heard[i], messages[i % messages.size()]);
}

TEST_F(MidiInLayer, SystemExclusiveFillsTheBuffersThatThereAre) {
    OpenAndStart();
    AddBuffers(3, 4);
    EXPECT_THAT(Hear({0xF0, 1, 2, 0xF8, 3, 4, 5, 6, 0xF7}), ElementsAre("F8", "LF0010203", "L040506F7"));
    // One buffer is left, and a message that does not fit into it is cut there.
    EXPECT_THAT(Hear({0xF0, 1, 2, 3, 4, 5, 0xF7, 0xF0, 9, 0xF7, 0x90, 1, 2, 0xF0, 1}),
                ElementsAre("LF0010203", "900102"));
    for (Buffer& buffer : buffers_)
        ASSERT_EQ(midiInAddBuffer(input_, &buffer.header, sizeof(MIDIHDR)), 0u);
    EXPECT_EQ(midiInAddBuffer(input_, &buffers_[0].header, sizeof(MIDIHDR)), MMRESULT{MIDIERR_STILLPLAYING});
    EXPECT_EQ(midiInClose(input_), MMRESULT{MIDIERR_STILLPLAYING});
    device_->Send({2, 0xF7});  // of a message that found no buffer, which comes too late
    EXPECT_THAT(Hear({0xF0, 1, 0x91, 1, 2, 0xF0, 6, 0xF0, 7}), ElementsAre("EF001", "910102", "EF006"));
    EXPECT_EQ(midiInStop(input_), 0u);
    EXPECT_THAT(std::exchange(heard_, {}), ElementsAre("LF007"));
    device_->Send({0x90, 1, 2});  // heard by nobody
    EXPECT_EQ(midiInReset(input_), 0u);
    EXPECT_THAT(heard_, IsEmpty());
}

TEST_F(MidiInLayer, OnceResetHasReturnedNothingIsCalledAnyMore) {
    std::atomic<bool> isOver{false};
    const auto flood = [&] {
        while (!isOver)
            device_->Send({0x90, 60, 64, 61, 64});
    };
    std::thread one(flood), other(flood);
    for (int round = 0; round < 200; ++round) {
        OpenAndStart();
        {
            std::unique_lock lock(mutex_);
            EXPECT_TRUE(changed_.wait_for(lock, 20s, [this] { return heard_.size() > 3; }));
        }
        EXPECT_EQ(midiInReset(input_), 0u);
        EXPECT_EQ(running_, 0);
        std::size_t heard = 0;
        {
            const std::lock_guard lock(mutex_);
            heard = heard_.size();
        }
        if (round % 2 == 0) {
            EXPECT_EQ(midiInStart(input_), 0u);
        }
        EXPECT_EQ(midiInReset(input_), 0u);
        EXPECT_EQ(midiInClose(input_), 0u);
        EXPECT_EQ(running_, 0);
        const std::lock_guard lock(mutex_);
        if (round % 2 == 1) {
            EXPECT_EQ(heard_.size(), heard + 1) << "the closing alone";
        }
        heard_.clear();
    }
    isOver = true;
    one.join();
    other.join();
}

TEST_F(MidiInLayer, ACallbackMayReplaceItsOwnInput) {
    HMIDIIN first = nullptr;
    onData_ = [&] {
        if (first)
            return;
        first = input_;
        nesting_ = 1;  // its calls call back within this one
        EXPECT_EQ(midiInReset(first), 0u);
        for (Buffer& buffer : buffers_)
            EXPECT_EQ(midiInUnprepareHeader(first, &buffer.header, sizeof(MIDIHDR)), 0u);
        EXPECT_EQ(midiInClose(first), 0u);
        EXPECT_EQ(Open(), 0u);
        EXPECT_EQ(midiInStart(input_), 0u);
        nesting_ = 0;
    };
    OpenAndStart();
    AddBuffers(2, 4);
    // What came with the message is not heard: it came to the input that is closed.
    device_->Send({0x90, 1, 2, 0x90, 3, 4, 0xF0, 1, 0xF7});
    WaitToHear("open");
    while (running_ != 0 || nesting_ != 0)  // ends: the callback is past everything that waits
        std::this_thread::yield();
    buffers_.clear();
    EXPECT_EQ(midiInStart(first), MMRESULT{MMSYSERR_INVALHANDLE});
    EXPECT_THAT(Hear({0x91, 5, 6}), ElementsAre("900102", "L", "L", "close", "open", "910506"));
    Close();
}

TEST_F(MidiInLayer, ACallbackOfABufferMayStopOrCloseTheInput) {
    onBuffer_ = [&] { EXPECT_EQ(midiInStop(input_), 0u); };
    OpenAndStart();
    AddBuffers(3, 4);
    device_->Send({0xF0, 1, 0xF0, 2});
    WaitToHear("EF001");
    EXPECT_EQ(midiInReset(input_), 0u);
    EXPECT_THAT(heard_, ElementsAre("EF001", "L", "L")) << "the message that breaks it off is not begun";
    Close();

    std::vector<MMRESULT> results;
    onBuffer_ = [&] {
        // What comes now waits for its turn, and never gets it.
        EXPECT_EQ(midiInStart(input_), 0u);
        device_->Send({0x90, 1, 2});
        for (int i = 0; i < 1000; ++i)
            std::this_thread::yield();
        nesting_ = 1;
        results.push_back(midiInClose(input_));
        nesting_ = 0;
    };
    OpenAndStart();
    AddBuffers(3, 4);
    EXPECT_EQ(midiInReset(input_), 0u);
    EXPECT_THAT(results, ElementsAre(65u, 65u, 0u));
    EXPECT_THAT(heard_, ElementsAre("L", "L", "L", "close"));
    buffers_.clear();
}

TEST_F(MidiInLayer, WhatAFloodHasDroppedIsToldInItsPlaceOncePerGap) {
    std::mutex gate;
    onData_ = [&gate] { const std::lock_guard wait(gate); };
    OpenAndStart();
    AddBuffers(3, 4);
    // kept: what still finds room, of which the rest is filled by data without status.
    const auto flood = [&](const Bytes& kept, const std::vector<Bytes>& dropped, const std::string& last) {
        while (running_ != 0)  // ends: the gate is open
            std::this_thread::yield();
        {
            const std::lock_guard held(gate);
            device_->Send({0xFA});
            WaitToHear("FA");
            device_->Send(Bytes(256 * 1024 - kept.size(), 1));
            device_->Send(kept);
            for (const Bytes& message : dropped)
                device_->Send(message);
        }
        WaitToHear(last);
    };
    flood({0x90, 60, 64, 0x90, 61}, {{65}}, "!41");
    device_->Send({66, 0xB0, 1, 2, 0xF6});  // which ends the running status
    EXPECT_THAT(Hear(), ElementsAre("FA", "903C40", "!41", "B00102", "F6")) << "nothing is joined across a gap";
    flood({}, {{0x90, 60, 64}, {0x80, 60, 64}, {0xB0, 64, 0}}, "!903C40");
    EXPECT_THAT(Hear(), ElementsAre("FA", "!903C40")) << "of several the first";
    flood({}, {{0xF0, 1, 0xF7}, {0xF0, 2, 0xF7}}, "E");
    EXPECT_THAT(Hear(), ElementsAre("FA", "E")) << "a buffer, empty";
    flood({0xF0, 5}, {{6, 0xF7}, {0xC0, 7}}, "!C007");
    EXPECT_THAT(Hear(), ElementsAre("FA", "EF005", "!C007")) << "the buffer that was begun";
    flood({}, {{0xF0, 1, 0xF7}}, "E");
    flood({}, {{0xF0, 1, 0xF7}, {0x90, 61, 64}}, "!903D40");
    EXPECT_THAT(Hear(), ElementsAre("FA", "E", "FA", "!903D40")) << "no buffer is left";
    EXPECT_THAT(Hear({0x90, 62, 64}), ElementsAre("903E40"));
    Close();
}

TEST_F(MidiInLayer, TimeCountsFromTheStart) {
    std::atomic<std::chrono::nanoseconds> now{5s};
    Layer::Instance().SetTimeSource([&now] { return now.load(); });
    OpenAndStart();
    const auto timeAt = [&](std::chrono::nanoseconds time) {
        now = time;
        Hear();
        return time_;
    };
    EXPECT_EQ(timeAt(5s), 0u);
    EXPECT_EQ(timeAt(5s + 12'999us), 12u);
    EXPECT_EQ(midiInStart(input_), 0u);  // has no effect
    EXPECT_EQ(timeAt(65s), 60'000u);
    EXPECT_EQ(midiInStop(input_), 0u);
    EXPECT_EQ(midiInStart(input_), 0u);
    EXPECT_EQ(timeAt(65s + 1ms), 1u);
    Layer::Instance().SetTimeSource({});
}

TEST_F(MidiInLayer, WithoutACallbackABufferTellsByItsFlags) {
    ASSERT_EQ(midiInOpen(&input_, 0, 0, 0, CALLBACK_NULL), 0u);
    AddBuffers(1, 8);
    ASSERT_EQ(midiInStart(input_), 0u);
    device_->Send({0x90, 1, 2, 0xF0, 7, 0xF7});
    EXPECT_TRUE(WaitUntil(
        [&] { return midiInUnprepareHeader(input_, &buffers_[0].header, sizeof(MIDIHDR)) != MIDIERR_STILLPLAYING; }));
    EXPECT_EQ(buffers_[0].header.dwFlags, DWORD{MHDR_DONE});
    EXPECT_EQ(buffers_[0].header.dwBytesRecorded, 3u);
}

TEST_F(MidiInLayer, ADeviceIsOpenedOnceAndHeardAgainWhenItComesBack) {
    OpenAndStart();
    HMIDIIN second = nullptr;
    EXPECT_EQ(midiInOpen(&second, 0, 0, 0, CALLBACK_NULL), MMRESULT{MMSYSERR_ALLOCATED});
    device_->Send({0x90, 9});
    Layer::Instance().RemoveInput(device_);
    EXPECT_TRUE(Layer::Instance().IsInputLost(0));
    EXPECT_EQ(midiInOpen(&second, 0, 0, 0, CALLBACK_NULL), MMRESULT{MMSYSERR_NODRIVER});
    device_->Send({0x90, 1, 2});
    const auto other = std::make_shared<VirtualMidiInput>(L"Other");
    Layer::Instance().AddInput(other);
    const auto again = std::make_shared<VirtualMidiInput>(L"Keys");
    again->SetRefusesOpen(true);
    EXPECT_FALSE(Layer::Instance().AddInput(again));
    EXPECT_TRUE(Layer::Instance().IsInputLost(0));
    again->SetRefusesOpen(false);
    EXPECT_TRUE(Layer::Instance().AddInput(again));
    EXPECT_FALSE(Layer::Instance().IsInputLost(0));
    EXPECT_FALSE(other->IsOpen());
    MIDIINCAPSW caps{};
    EXPECT_EQ(midiInGetDevCapsW(0, &caps, sizeof(caps)), 0u);
    EXPECT_EQ(std::wstring(caps.szPname), L"Keys");
    again->Send({8, 0x90, 3, 4, 0xFE});
    WaitToHear("FE");
    const std::lock_guard lock(mutex_);
    EXPECT_THAT(heard_, ElementsAre("900304", "FE"));
}

TEST_F(MidiInLayer, WhatIsRefusedChangesNothing) {
    device_->SetRefusesOpen(true);
    EXPECT_EQ(Open(), MMRESULT{MMSYSERR_ALLOCATED});
    EXPECT_EQ(input_, nullptr);
    device_->SetRefusesOpen(false);
    Layer::Instance().Fail(Fault::kInputOpen, 7, 1);
    EXPECT_EQ(Open(), 7u);
    HMIDIIN none = nullptr;
    EXPECT_EQ(midiInOpen(&none, 1, 0, 0, CALLBACK_NULL), MMRESULT{MMSYSERR_BADDEVICEID});
    EXPECT_EQ(midiInOpen(nullptr, 0, 0, 0, CALLBACK_NULL), MMRESULT{MMSYSERR_INVALPARAM});
    ASSERT_EQ(Open(), 0u);
    Layer::Instance().Fail(Fault::kInputStart, 5, 1);
    EXPECT_EQ(midiInStart(input_), 5u);
    device_->Send({0x90, 1, 2});
    EXPECT_EQ(midiInStart(input_), 0u);
    EXPECT_THAT(Hear(), ElementsAre("open"));
    MIDIINCAPSW caps{};
    Layer::Instance().Fail(Fault::kInputCaps, 6, 1);
    EXPECT_EQ(midiInGetDevCapsW(0, &caps, sizeof(caps)), 6u);
    EXPECT_EQ(midiInGetDevCapsW(1, &caps, sizeof(caps)), MMRESULT{MMSYSERR_BADDEVICEID});
    EXPECT_EQ(midiInGetDevCapsW(0, nullptr, sizeof(caps)), MMRESULT{MMSYSERR_INVALPARAM});
    MIDIHDR header{};
    EXPECT_EQ(midiInPrepareHeader(input_, &header, sizeof(header)), MMRESULT{MMSYSERR_INVALPARAM});
    EXPECT_EQ(midiInAddBuffer(input_, &header, sizeof(header)), MMRESULT{MIDIERR_UNPREPARED});
    const HMIDIIN closed = input_;
    Close();
    EXPECT_EQ(midiInStart(closed), MMRESULT{MMSYSERR_INVALHANDLE});
}

}  // namespace
