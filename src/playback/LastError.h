#pragma once
// Result codes of the media-object style interfaces (CMp3), and the thread's
// last error, where an operation that answers only true or false leaves the
// reason, as the handheld platform's GetLastError did.
#include <cstdint>

namespace talvo {

using HRESULT = std::int32_t;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_HANDLE = static_cast<HRESULT>(0x80070006u);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);

inline constexpr bool Failed(HRESULT hr)
{
    return hr < 0;
}

// Per thread; untouched by success.
std::uint32_t GetLastError();
void SetLastError(std::uint32_t code);

} // namespace talvo
