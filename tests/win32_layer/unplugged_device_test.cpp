// Outputs that go and come back beneath open handles.
#include <gmock/gmock.h>
#include <windows.h>

#include <mmsystem.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/midi/patience.h"
#include "win32_layer/layer.h"

namespace {

using testing::ElementsAre;
using win32_layer::Delivery;
using win32_layer::Layer;
using win32_layer::MidiOutputDevice;
using win32_layer::OutputChange;

/// Counts who has it open, and may refuse.
class PluggedOutput : public MidiOutputDevice {
public:
    explicit PluggedOutput(std::wstring name, std::string identity = "same")
        : name_(std::move(name)), identity_(std::move(identity)) {}
    std::wstring GetName() const override { return name_; }
    std::string GetIdentity() const override { return identity_; }
    bool Open() override {
        if (door)
            door->Pass();
        if (openings == mostOpenings)
            return false;
        ++openings;
        return true;
    }
    void Close() override {
        if (door)
            door->Pass();
        --openings;
    }
    void Play(const std::uint8_t* bytes, std::size_t, std::chrono::nanoseconds) override { played.push_back(bytes[1]); }

    int openings = 0;
    int mostOpenings = 9;
    Door* door = nullptr;  // it opens and closes behind it, as a driver that takes its time
    std::vector<int> played;

private:
    const std::wstring name_;
    const std::string identity_;
};

class UnpluggedDevice : public testing::Test {
protected:
    UnpluggedDevice() {
        Layer::Instance().Reset();
        Layer::Instance().AddOutput(other_);
        Layer::Instance().AddOutput(device_);
        Layer::Instance().SetOutputObserver(
            [this](std::size_t index, OutputChange change) { changes_.emplace_back(index, change); });
    }
    ~UnpluggedDevice() override {
        for (const HMIDISTRM stream : streams_) {
            midiOutUnprepareHeader(reinterpret_cast<HMIDIOUT>(stream), &header_, sizeof(header_));
            midiStreamClose(stream);
        }
        Layer::Instance().Reset();
        EXPECT_EQ(Layer::Instance().GetCounters().openStreams, 0);
    }

    HMIDISTRM Open() {
        UINT index = 1;
        HMIDISTRM stream = nullptr;
        EXPECT_EQ(midiStreamOpen(&stream, &index, 1, reinterpret_cast<DWORD_PTR>(&OnMessage),
                                 reinterpret_cast<DWORD_PTR>(this), CALLBACK_FUNCTION),
                  0u);
        midiStreamRestart(stream);
        streams_.push_back(stream);
        return stream;
    }
    /// A note-on, and waits for the buffer.
    bool Send(HMIDISTRM stream, DWORD note) {
        events_ = {0, 0, 0x90u | note << 8 | 100u << 16};
        header_.lpData = reinterpret_cast<LPSTR>(events_.data());
        header_.dwBufferLength = header_.dwBytesRecorded = sizeof(events_);
        midiOutPrepareHeader(reinterpret_cast<HMIDIOUT>(stream), &header_, sizeof(header_));
        const int before = done_.Get();
        return midiStreamOut(stream, &header_, sizeof(header_)) == MMSYSERR_NOERROR && done_.WaitFor(before + 1);
    }

    const std::shared_ptr<PluggedOutput> other_ = std::make_shared<PluggedOutput>(L"other", "other");
    const std::shared_ptr<PluggedOutput> device_ = std::make_shared<PluggedOutput>(L"piano");
    std::vector<std::pair<std::size_t, OutputChange>> changes_;

private:
    static void CALLBACK OnMessage(HMIDIOUT, UINT message, DWORD_PTR instance, DWORD_PTR, DWORD_PTR) {
        if (message == MOM_DONE)
            reinterpret_cast<UnpluggedDevice*>(instance)->done_.Add();
    }

    std::vector<HMIDISTRM> streams_;
    std::array<DWORD, 3> events_{};
    MIDIHDR header_{};
    Count done_;
};

TEST_F(UnpluggedDevice, WhatIsSentToALostDeviceIsSwallowedAndReturnedAndTheNextOneGetsWhatFollows) {
    for (const Delivery delivery : {Delivery::kThread, Delivery::kInline}) {
        Layer::Instance().SetDelivery(delivery);
        const HMIDISTRM stream = Open();
        const auto first = Layer::Instance().GetOutputs()[1];
        auto second = std::make_shared<PluggedOutput>(L"piano");
        EXPECT_TRUE(Send(stream, 60));
        Layer::Instance().RemoveOutput(first);
        EXPECT_TRUE(Layer::Instance().IsOutputLost(1));
        EXPECT_TRUE(Send(stream, 61));
        EXPECT_TRUE(Layer::Instance().AddOutput(second));
        EXPECT_FALSE(Layer::Instance().IsOutputLost(1));
        EXPECT_TRUE(Send(stream, 62));
        EXPECT_EQ(static_cast<PluggedOutput&>(*first).played.back(), 60);
        EXPECT_THAT(second->played, ElementsAre(62));
    }
    using enum OutputChange;
    EXPECT_THAT(changes_, ElementsAre(std::pair(1, kLost), std::pair(1, kReturned), std::pair(1, kLost),
                                      std::pair(1, kReturned)));
}

TEST_F(UnpluggedDevice, ADeviceOfAnotherIdentityNeverTakesThePlaceAndNoIndexChangesItsMeaning) {
    const HMIDISTRM stream = Open();
    Layer::Instance().RemoveOutput(device_);
    Layer::Instance().RemoveOutput(other_);
    const auto stranger = std::make_shared<PluggedOutput>(L"piano", "stranger");
    Layer::Instance().AddOutput(stranger);
    EXPECT_TRUE(Send(stream, 60));
    EXPECT_TRUE(stranger->played.empty());
    ASSERT_EQ(midiOutGetNumDevs(), 3u);
    const wchar_t* const names[] = {L"other", L"piano", L"piano 2"};
    for (UINT index = 0; index < 3; ++index) {
        MIDIOUTCAPSW caps{};
        EXPECT_EQ(midiOutGetDevCapsW(index, &caps, sizeof(caps)), 0u);
        EXPECT_EQ(std::wstring(caps.szPname), names[index]);
        EXPECT_EQ(Layer::Instance().IsOutputLost(index), index < 2) << index;
    }
    UINT lost = 0;
    HMIDISTRM refused = nullptr;
    EXPECT_EQ(midiStreamOpen(&refused, &lost, 1, 0, 0, CALLBACK_NULL), static_cast<MMRESULT>(MMSYSERR_NODRIVER));
    EXPECT_FALSE(Layer::Instance().IsOutputLost(3));
}

TEST_F(UnpluggedDevice, NoSendWaitsWhileADeviceIsTakenAwayOrPutBack) {
    const HMIDISTRM stream = Open();
    Door closing;
    device_->door = &closing;
    std::thread unplugging([this] { Layer::Instance().RemoveOutput(device_); });
    EXPECT_TRUE(closing.WaitForArrival());
    EXPECT_TRUE(Send(stream, 60));
    closing.Open();
    unplugging.join();
    Door opening;
    const auto next = std::make_shared<PluggedOutput>(L"piano");
    next->door = &opening;
    std::thread plugging([&next] { Layer::Instance().AddOutput(next); });
    EXPECT_TRUE(opening.WaitForArrival());
    EXPECT_TRUE(Send(stream, 61));
    opening.Open();
    plugging.join();
    EXPECT_TRUE(Send(stream, 62));
    EXPECT_THAT(next->played, ElementsAre(62));
    next->door = nullptr;
}

TEST_F(UnpluggedDevice, EveryOpenOfTheOldDeviceIsClosedAndTheNewOneIsOpenedAsOftenAsItIsStillHeld) {
    Open();
    const HMIDISTRM second = Open();
    EXPECT_EQ(device_->openings, 2);
    Layer::Instance().RemoveOutput(device_);
    EXPECT_EQ(device_->openings, 0);
    midiStreamClose(second);
    const auto refusing = std::make_shared<PluggedOutput>(L"piano");
    refusing->mostOpenings = 0;
    EXPECT_FALSE(Layer::Instance().AddOutput(refusing));
    EXPECT_TRUE(Layer::Instance().IsOutputLost(1));
    const auto next = std::make_shared<PluggedOutput>(L"piano");
    EXPECT_TRUE(Layer::Instance().AddOutput(next));
    EXPECT_EQ(next->openings, 1);
    Layer::Instance().Reset();
    EXPECT_EQ(next->openings, 0);
}

}  // namespace
