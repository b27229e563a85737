#include <Platform/Threads.h>

#include <windows.h>

#include <objbase.h>

std::thread StartThread(std::function<void()> body, ThreadPriority priority) {
    FailThreadStartIfAsked();
    return std::thread([body = std::move(body), priority] {
        if (priority == ThreadPriority::Lowest) SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_LOWEST);
        const HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        body();
        if (SUCCEEDED(hr)) CoUninitialize();
    });
}
