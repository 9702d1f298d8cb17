#include "win32_layer/layer.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <algorithm>
#include <utility>

#include "faults.h"
#include "input_devices.h"
#include "layer_clock.h"
#include "midi_inputs.h"
#include "midi_streams.h"
#include "output_devices.h"
#include "timer_thread.h"

namespace win32_layer {

Layer& Layer::Instance() {
    static Layer instance;
    return instance;
}

bool Layer::AddOutput(std::shared_ptr<MidiOutputDevice> device) {
    return OutputDevices::Instance().Add(std::move(device));
}

void Layer::RemoveOutput(const std::shared_ptr<MidiOutputDevice>& device) {
    OutputDevices::Instance().Remove(device);
}

std::vector<std::shared_ptr<MidiOutputDevice>> Layer::GetOutputs() const {
    return OutputDevices::Instance().GetPlaces().GetDevices();
}

bool Layer::AddInput(std::shared_ptr<MidiInputDevice> device) {
    return InputDevices::Instance().Add(std::move(device));
}

void Layer::RemoveInput(const std::shared_ptr<MidiInputDevice>& device) {
    InputDevices::Instance().Remove(device);
}

std::vector<std::shared_ptr<MidiInputDevice>> Layer::GetInputs() const {
    return InputDevices::Instance().GetPlaces().GetDevices();
}

bool Layer::IsOutputLost(std::size_t index) const {
    const auto place = OutputDevices::Instance().GetPlaces().At(index);
    return place && !OutputDevices::Instance().GetPlaces().GetDevice(*place);
}

bool Layer::IsInputLost(std::size_t index) const {
    const auto place = InputDevices::Instance().GetPlaces().At(index);
    return place && !InputDevices::Instance().GetPlaces().GetDevice(*place);
}

void Layer::SetOutputObserver(OutputObserver observer) {
    OutputDevices::Instance().SetObserver(std::move(observer));
}

void Layer::SetDelivery(Delivery delivery) {
    MidiStreams::Instance().SetDelivery(delivery);
}

void Layer::SetExclusive(const std::shared_ptr<MidiOutputDevice>& device, bool exclusive) {
    OutputDevices::Instance().SetExclusive(device, exclusive);
}

void Layer::SetTimeSource(TimeSource source) {
    LayerClock::Instance().SetSource(std::move(source));
}

void Layer::SetObserver(Observer observer) {
    MidiStreams::Instance().SetObserver(std::move(observer));
}

void Layer::Fail(Fault fault, unsigned int code, int calls) {
    Faults::Instance().Set(fault, code, calls);
}

void Layer::HoldBuffers(int count) {
    MidiStreams::Instance().HoldBuffers(count);
}

void Layer::ReleaseHeldBuffers() {
    MidiStreams::Instance().ReleaseHeldBuffers();
}

void Layer::DelayReturns(std::chrono::milliseconds delay) {
    MidiStreams::Instance().DelayReturns(delay);
}

Counters Layer::GetCounters() const {
    const auto streams = MidiStreams::Instance().GetTotals();
    const auto inputs = MidiInputs::Instance().GetTotals();
    const auto timers = TimerThread::Instance().GetTotals();
    Counters counters;
    counters.openStreams = streams.openStreams;
    counters.openInputs = inputs.openInputs;
    counters.preparedHeaders = streams.preparedHeaders + inputs.preparedHeaders;
    counters.queuedHeaders = streams.queuedHeaders + inputs.queuedHeaders;
    counters.timerPeriods = timers.periods;
    counters.outstandingTimers = timers.outstanding;
    counters.streamOuts = streams.streamOuts;
    counters.timersSet = timers.set;
    counters.doneCallbacks = streams.doneCallbacks;
    return counters;
}

bool Layer::WaitForTimers(std::chrono::milliseconds atMost) {
    return TimerThread::Instance().WaitUntilIdle(atMost);
}

void Layer::Reset() {
    Faults::Instance().Clear();
    OutputDevices::Instance().SetObserver({});
    OutputDevices::Instance().RemoveAll();
    InputDevices::Instance().RemoveAll();
    LayerClock::Instance().SetSource({});
    MidiStreams::Instance().Reset();
    MidiInputs::Instance().Reset();
    TimerThread::Instance().Reset();
}

bool Layer::GiveTimerPriority() {
    // The default slack would let the system make every clock up to 50 us later.
    prctl(PR_SET_TIMERSLACK, 1UL);
    constexpr int kWanted = 50;  // above ordinary work, below the system's own interrupt threads
    rlimit allowed{};
    getrlimit(RLIMIT_RTPRIO, &allowed);
    for (const rlim_t priority : {rlim_t{kWanted}, std::min<rlim_t>(kWanted, allowed.rlim_cur)}) {
        sched_param parameters{};
        parameters.sched_priority = static_cast<int>(priority);
        if (priority > 0 && pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters) == 0)
            return true;
    }
    return false;
}

}  // namespace win32_layer
