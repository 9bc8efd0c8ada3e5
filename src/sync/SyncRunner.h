#pragma once
// The desktop-sync transport: a command runs in a process of its own, takes
// its input from the registry value "_DataIn" and leaves its answer in "_Data"
// (the bytes themselves, or the full path of the data file when they are too
// many for one value).  The runner does all the transport; a command is a
// handler that only turns input bytes into output bytes.
#include "platform/Registry.h"
#include "playback/LastError.h"

#include <QString>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace talvo {

inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);

// A platform error as an HRESULT, the way the desktop expects it: 0x8007xxxx
// with the low 16 bits of the code; 0 and negative codes pass unchanged.  The
// code is the platform's number, never an errno (platform/SystemError.h).
inline constexpr HRESULT HResultFromError(std::int32_t code)
{
    return code <= 0 ? code
                     : static_cast<HRESULT>((static_cast<std::uint32_t>(code) & 0xFFFFu) | 0x80070000u);
}
static_assert(HResultFromError(2) == static_cast<HRESULT>(0x80070002u));

namespace SyncTransport {
inline constexpr std::u16string_view kKey = u"Software\\Talvo";
inline constexpr std::u16string_view kInputValue = u"_DataIn";
inline constexpr std::u16string_view kOutputValue = u"_Data";
// The data file's name: "_Data" + ".tmp".
inline constexpr std::string_view kDataFileName = "_Data.tmp";
// Answers up to this size travel in "_Data" itself; larger ones in the data file.
inline constexpr std::uint32_t kMaxValueBytes = 2048;
// The data file may still be held by the desktop reading the previous answer:
// creating it is retried every kCreateRetryMs until kCreateLimitMs have passed.
inline constexpr int kCreateRetryMs = 500;
inline constexpr int kCreateLimitMs = 10000;
} // namespace SyncTransport

struct SyncAnswer {
    HRESULT result = S_OK;
    std::vector<std::uint8_t> output;
};

// input is none when "_DataIn" is absent or empty.
using SyncHandler = std::function<SyncAnswer(const std::optional<std::vector<std::uint8_t>>& input)>;

// The data file for an executable: "_Data.tmp" in the executable's folder when
// this process may write there, else in the player's data folder (created when
// missing).  The desktop learns where from "_Data", so either place serves.
QString SyncDataFilePath(const QString& executablePath);

// Writes the answer to path, retrying the create while something holds the
// file; shows the error box (57692 or 57693) and answers false on failure.
bool WriteSyncDataFile(const std::vector<std::uint8_t>& bytes, const QString& path);

// Runs one command: reads "_DataIn", calls the handler, stores the answer.
// Returns the handler's result, or E_FAIL when the transport failed.
HRESULT RunSyncCommand(Registry& registry, const QString& executablePath, const SyncHandler& handler);

} // namespace talvo
