#include "midi/midi_time_code.h"

#include <gmock/gmock.h>

#include <array>
#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "midi/invalid_frame_count.h"
#include "midi/invalid_hour_count.h"
#include "midi/invalid_minute_count.h"
#include "midi/invalid_second_count.h"
#include "midi/midi_time_code_frame_rate_error.h"
#include "midi/quarter_frame_index_error.h"
#include "tests/midi/frame_labels.h"
#include "tests/midi/message_of.h"

namespace {

using testing::ElementsAre;

constexpr std::array kFramesPerDay{24 * 86400, 25 * 86400, 24 * 107892, 30 * 86400};

std::string Text(const MidiTimeCode& code) {
    return code.GetAsString() + "." + std::to_string(code.GetQuarterFrameIndex());
}

// The valid labels of a day, written down by the rule that drops them, are the ones
// that stepping visits: each once, in both directions.
TEST(MidiTimeCode, ADayOfStepsVisitsEachValidLabelOnceAndEndsWhereItBegan) {
    for (std::size_t rate = 0; rate < kRates.size(); ++rate) {
        MidiTimeCode up(0, 0, 0, 0, kRates[rate]);
        MidiTimeCode down = up;
        const std::vector<Label> labels = CreateLabels(kRates[rate], 24);
        ASSERT_EQ(labels.size(), kFramesPerDay[rate]);
        const auto isAt = [](const MidiTimeCode& code, const Label& label) {
            const FullFrameMessage full = code.GetFullFrameMessage();
            return Label{full.GetHours(), full.GetMinutes(), full.GetSeconds(), full.GetFrames()} == label;
        };
        for (std::size_t i = 0; i < labels.size(); ++i) {
            ASSERT_TRUE(isAt(up, labels[i])) << Text(up) << " as label " << i;
            for (int quarter = 0; quarter < 4; ++quarter)
                up.IncrementQuarterFrame();
            --down;
            ASSERT_TRUE(isAt(down, labels[labels.size() - 1 - i])) << Text(down) << " at " << i << " steps back";
        }
        EXPECT_EQ(up, MidiTimeCode(0, 0, 0, 0, kRates[rate]));
        EXPECT_EQ(down, up);
    }
}

TEST(MidiTimeCode, SecondsBecomeLabels) {
    const struct {
        double seconds;
        FrameRate rate;
        const char* text;
    } rows[] = {
        {60.0, FrameRate::k2997Drop, "00:00:59;28.0"},      {60.0, FrameRate::k30, "00:01:00:00.0"},
        {3723.17, FrameRate::k25, "01:02:03:04.1"},         {86399.999, FrameRate::k24, "23:59:59:23.3"},
        {3599.999, FrameRate::k2997Drop, "00:59:59;29.3"},  {3600.0, FrameRate::k2997Drop, "01:00:00;00.0"},
        {200.0 / 3, FrameRate::k2997Drop, "00:01:06;19.3"},  // a quotient that rounds up to the quarter frame after
    };
    for (const auto& row : rows) {
        const MidiTimeCode code(row.seconds, row.rate);
        EXPECT_EQ(Text(code), row.text) << row.seconds;
        EXPECT_NEAR(code.GetAsSeconds(), row.seconds, 1e-9);
    }
}

// At each label's own second, or at the double before or after it: there quotients
// round across the border.
TEST(MidiTimeCode, SecondsOfEveryLabelComeBackAndStayInsideTheirFrame) {
    for (const FrameRate rate : kRates) {
        const MidiTimeCode midnight(0, 0, 0, 0, rate);
        MidiTimeCode label = midnight;
        const double frame = MidiTimeCode(0, 0, 0, 1, rate).GetAsSeconds();
        int turn = 0;
        do {
            double seconds = label.GetAsSeconds();
            turn = (turn + 1) % 3;
            if (turn != 0)
                seconds = std::nextafter(seconds, turn == 1 ? 0.0 : 1e9);
            MidiTimeCode code(seconds, rate);
            const double inside = code.GetAsSeconds();
            ASSERT_TRUE(std::abs(inside - seconds) < 1e-9 && code.GetQuarterFrameIndex() < 4) << Text(label);
            code.SetQuarterFrameIndex(0);
            const double begin = code.GetAsSeconds();
            ASSERT_TRUE(inside >= begin && inside < begin + frame + 1e-9) << Text(label);
            ASSERT_TRUE(code == label || ++code == label) << Text(code) << " for " << Text(label);
            ++label;
        } while (label != midnight);
    }
}

TEST(MidiTimeCode, SecondsOfNoDayAreHarmless) {
    for (const double seconds : {-1.0, 86400.0 * 400, 1e300, -1e300, std::nan("")})
        for (const FrameRate rate : kRates)
            EXPECT_LT(MidiTimeCode(seconds, rate).GetQuarterFrameIndex(), 4) << seconds;
}

TEST(MidiTimeCode, RefusesLabelsThatDoNotExist) {
    const auto make = [](unsigned char h, unsigned char m, unsigned char s, unsigned char f, FrameRate rate) {
        return [=] { MidiTimeCode(h, m, s, f, rate); };
    };
    EXPECT_EQ(MessageOf<InvalidFrameCount>(make(24, 60, 60, 30, FrameRate::k30)), "Invalid frameCount: 30");
    EXPECT_EQ(MessageOf<InvalidFrameCount>(make(0, 0, 0, 24, FrameRate::k24)), "Invalid frameCount: 24");
    EXPECT_EQ(MessageOf<InvalidFrameCount>(make(0, 1, 0, 0, FrameRate::k2997Drop)), "Invalid frameCount: 0");
    EXPECT_EQ(MessageOf<InvalidFrameCount>(make(0, 59, 0, 1, FrameRate::k2997Drop)), "Invalid frameCount: 1");
    EXPECT_EQ(MessageOf<InvalidSecondCount>(make(24, 60, 60, 0, FrameRate::k30)), "Invalid secondCount: 60");
    EXPECT_EQ(MessageOf<InvalidMinuteCount>(make(24, 60, 59, 0, FrameRate::k30)), "Invalid minuteCount: 60");
    EXPECT_EQ(MessageOf<InvalidHourCount>(make(24, 59, 59, 0, FrameRate::k30)), "Invalid hourCount: 24");
    EXPECT_NO_THROW(make(0, 10, 0, 0, FrameRate::k2997Drop)());
}

TEST(MidiTimeCode, AddsAndSubtractsColumnByColumn) {
    const auto drop = [](int m, int s, int f, int quarter = 0) {
        MidiTimeCode code(0, static_cast<unsigned char>(m), static_cast<unsigned char>(s),
                          static_cast<unsigned char>(f), FrameRate::k2997Drop);
        code.SetQuarterFrameIndex(static_cast<unsigned char>(quarter));
        return code;
    };
    EXPECT_EQ(Text(drop(0, 59, 29, 3) + drop(0, 0, 0, 1)), "00:01:00;02.0");
    EXPECT_EQ(Text(drop(0, 59, 28) + drop(0, 1, 29)), "00:01:01;27.0");
    EXPECT_EQ(Text(drop(0, 59, 29) + drop(0, 0, 29)), "00:01:01;00.0");  // 28 and the two dropped exceed the last
    EXPECT_EQ(Text(drop(1, 0, 2) + drop(1, 0, 2)), "00:02:00;02.0");
    EXPECT_EQ(Text(drop(1, 0, 2, 1) - drop(0, 0, 0, 2)), "00:00:59;29.3");
    EXPECT_EQ(Text(drop(1, 1, 0) - drop(0, 1, 0)), "00:00:59;28.0");                 // 1:00;00 is none
    EXPECT_EQ(drop(1, 1, 0).GetDifferenceAsQuarterFrameCount(drop(1, 0, 29)), 12U);  // by columns, for 4
    EXPECT_EQ(drop(0, 0, 0).GetDifferenceAsQuarterFrameCount(drop(0, 0, 0, 1)), 4ULL * kFramesPerDay[2] - 1);

    const MidiTimeCode last(23, 59, 59, 29, FrameRate::k30);
    EXPECT_EQ(Text(last + 1), "00:00:00:00.0");
    EXPECT_EQ(Text(MidiTimeCode() - 29), "23:59:59:01.0");
    EXPECT_EQ(MessageOf<InvalidFrameCount>([&] { last + 30; }), "Invalid frameCount: 30");
    MidiTimeCode inside(10.019, FrameRate::k25);
    inside += MidiTimeCode(0, 0, 1, 0, FrameRate::k25);
    EXPECT_DOUBLE_EQ(inside.GetAsSeconds(), 11.019);

    const std::string text = "Cannot add together time codes with different frame rates.";
    EXPECT_EQ(MessageOf<MidiTimeCodeFrameRateError>([&] { last + MidiTimeCode(0, 0, 0, 0, FrameRate::k25); }), text);
    EXPECT_EQ(MessageOf<MidiTimeCodeFrameRateError>([&] { last - drop(0, 0, 0); }), text);
}

TEST(MidiTimeCode, OrderCountsQuarterFramesAcrossDroppedLabels) {
    for (const FrameRate rate : kRates) {
        MidiTimeCode code(0, 58, 0, 2, rate);
        for (MidiTimeCode next = code; next < MidiTimeCode(1, 1, 0, 2, rate); code = next) {
            next.IncrementQuarterFrame();
            ASSERT_TRUE(code < next && !(next < code) && next != code) << Text(code);
        }
    }
}

TEST(MidiTimeCode, MessagesCarryTheTimeCode) {
    const MidiTimeCode code(17, 2, 43, 24, FrameRate::k25);
    std::vector<int> data;
    MidiTimeCode received;
    for (unsigned char index = 0; index < 8; ++index) {
        const QuarterFrameMessage message = code.GetQuarterFrameMessage(index);
        EXPECT_EQ(message.Get()[0], 0xF1);
        data.push_back(message.Get()[1]);
        received.ProcessQuarterFrameMessage(message);
    }
    EXPECT_THAT(data, ElementsAre(0x08, 0x11, 0x2B, 0x32, 0x42, 0x50, 0x61, 0x73));
    EXPECT_EQ(received, code);
    EXPECT_EQ(MessageOf<QuarterFrameIndexError>([&] { code.GetQuarterFrameMessage(8); }),
              "Index not supported by QuarterFrame.");

    const FullFrameMessage full = MidiTimeCode(1, 2, 3, 4, FrameRate::k30).GetFullFrameMessage();
    EXPECT_THAT(std::vector<int>(full.Get(), full.Get() + FullFrameMessage::kSize),
                ElementsAre(0xF0, 0x7F, 0x7F, 0x01, 0x01, 0x61, 0x02, 0x03, 0x04, 0xF7));
    received.SetFullFrameMessage(MidiTimeCode(23, 1, 0, 2, FrameRate::k2997Drop).GetFullFrameMessage());
    EXPECT_EQ((--received).GetAsString(), "23:00:59;29");  // steps as the new rate does
}

TEST(MidiTimeCode, AnObjectStepsItselfAfterCopiesAndSwaps) {
    MidiTimeCode a(0, 0, 59, 29, FrameRate::k2997Drop);
    MidiTimeCode b(1, 0, 0, 24, FrameRate::k25);
    std::swap(a, b);
    MidiTimeCode c = a;
    ++b;
    EXPECT_EQ(Text(c++), "01:00:00:24.0");
    EXPECT_EQ(Text(c), "01:00:01:00.0");
    EXPECT_EQ(Text(b--), "00:01:00;02.0");
    EXPECT_EQ(Text(b), "00:00:59;29.0");
    MidiTimeCode odd(0, 0, 0, 29, static_cast<FrameRate>(9));
    EXPECT_EQ((++odd).GetAsString(), "00:00:01:00");
    EXPECT_EQ(MidiTimeCode(1.5, static_cast<FrameRate>(9)).GetAsString(), "00:00:01:15");
}

TEST(FrameRate, NamesAreOfFourRates) {
    EXPECT_THAT(frameRateStrings, ElementsAre("24 fps", "25 fps", "29.97 fps drop", "30 fps"));
    for (const FrameRate rate : kRates)
        EXPECT_EQ(ConvertStringToFrameRate(ConvertFrameRateToString(rate)), rate);
    EXPECT_EQ(MessageOf<std::logic_error>([] { ConvertFrameRateToString(static_cast<FrameRate>(4)); }),
              "Unsupported frame rate");
    EXPECT_EQ(MessageOf<std::logic_error>([] { ConvertStringToFrameRate("30 fps "); }), "Unsupported frame rate.");
}

}  // namespace
