#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include "device_address.h"
#include "win32_layer/real_devices.h"

namespace win32_layer {

/// What a device of the system that is open shares with the thread that has its port. The
/// thread alone calls what may hang in the system, and may outlive the device.
///
/// Owner:   shared by device and thread.
/// Lock:    mutex_, a leaf but for what derived classes say.
class PortLine {
public:
    PortLine(DeviceAddress address, RealDevices::Say say);
    virtual ~PortLine();
    PortLine(const PortLine&) = delete;
    PortLine& operator=(const PortLine&) = delete;

    /// Starts the thread, and waits two seconds at most until it has the port. False where it
    /// has not; the line ends then.
    static bool Open(const std::shared_ptr<PortLine>& line);
    /// How many lines are still at work.
    static int Count();

protected:
    /// On the thread, from the opening of the port to its closing. What it throws is told as
    /// the reason why the port cannot be opened.
    virtual void Work() = 0;
    /// Has Work() end; with mutex_ held.
    virtual void End() = 0;
    /// By Work(), once it has the port.
    void TellOpen();

    const DeviceAddress address_;
    const RealDevices::Say say_;
    std::mutex mutex_;
    std::condition_variable changed_;
    bool hasEnded_ = false;  // guarded by mutex_

private:
    void Run();

    bool isOpen_ = false;  // guarded by mutex_
};

}  // namespace win32_layer
