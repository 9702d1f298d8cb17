#include "zell/Sources/system_thread_name.h"

#include <windows.h>

namespace zell {

void SetSystemNameOfCurrentThread(const std::string& name) {
    // Looked up by name: older systems lack it.
    using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
    const auto setDescription = reinterpret_cast<SetDescription>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "SetThreadDescription")));
    if (setDescription)
        setDescription(GetCurrentThread(), std::wstring(name.begin(), name.end()).c_str());
}

}  // namespace zell
