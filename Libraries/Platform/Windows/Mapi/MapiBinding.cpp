// Defines the MAPI functions and forwards each to the system's mapi32.dll, found at its first call:
// that library exports some under their plain names and others only under decorated ones, also where
// nothing else is decorated, so linking by name would not find them.
#include <Platform/MapiHeaders.h>

#include <type_traits>

namespace {

HMODULE Mapi() {
    static const HMODULE module = LoadLibraryA("mapi32.dll");
    return module;
}

void* FindFunction(const char* plain, const char* decorated) {
    if (!Mapi()) return nullptr;
    FARPROC function = GetProcAddress(Mapi(), plain);
    if (!function) function = GetProcAddress(Mapi(), decorated);
    return reinterpret_cast<void*>(function);
}

// What a caller sees on a machine without this function.
template <class Result>
Result Absent() {
    if constexpr (std::is_same_v<Result, HRESULT>) {
        return MAPI_E_NO_SUPPORT;
    } else if constexpr (!std::is_void_v<Result>) {
        return Result{};
    }
}

}  // namespace

#define MAPI_FUNCTION(result, name, bytes, parameters, arguments)                                       \
    extern "C" result WINAPI name parameters {                                                          \
        using Function = result(WINAPI*) parameters;                                                    \
        static const auto function = reinterpret_cast<Function>(FindFunction(#name, #name "@" #bytes)); \
        return function ? function arguments : Absent<result>();                                        \
    }
#include <Platform/MapiFunctions.inc>
