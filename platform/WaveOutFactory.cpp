// The one place that chooses the wave output.
#include "platform/WaveOut.h"
#include "platform/linux/AlsaWaveOut.h"
#include "platform/null/NullWaveOut.h"

#include <charconv>
#include <cstdlib>

namespace talvo {

namespace {

constexpr std::string_view kDefaultAlsaDevice = "default";

bool Fail(std::string* error, std::string text)
{
    if (error != nullptr) {
        *error = std::move(text);
    }
    return false;
}

// "max" is 0 (unpaced); otherwise a positive multiple of real time.
bool ParseSpeed(std::string_view text, double* speed)
{
    if (text == "max") {
        *speed = NullWaveOut::kUnpaced;
        return true;
    }
    const std::string copy(text);
    char* end = nullptr;
    const double value = std::strtod(copy.c_str(), &end);
    if (copy.empty() || end != copy.c_str() + copy.size() || !(value > 0)) {
        return false;
    }
    *speed = value;
    return true;
}

bool ParseCount(std::string_view text, std::uint32_t* value)
{
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), *value);
    return ec == std::errc() && end == text.data() + text.size();
}

// Takes the trailing ",late=MS", ",burst=N" and ",miss=N" options off the end,
// which leaves file names with commas in them alone.
bool TakeOptions(std::string_view& rest, WaveOutMisbehaviour* misbehaviour, std::string* error)
{
    for (std::size_t comma = rest.rfind(','); comma != std::string_view::npos; comma = rest.rfind(',')) {
        const std::string_view option = rest.substr(comma + 1);
        const std::size_t eq = option.find('=');
        if (eq == std::string_view::npos) {
            break;
        }
        const std::string_view key = option.substr(0, eq);
        std::uint32_t* target = key == "late"    ? &misbehaviour->lateMs
                                : key == "burst" ? &misbehaviour->burst
                                : key == "miss"  ? &misbehaviour->missEvery
                                                 : nullptr;
        if (target == nullptr) {
            break;
        }
        if (!ParseCount(option.substr(eq + 1), target)) {
            return Fail(error, "bad value in audio option \"" + std::string(option) + "\"");
        }
        rest = rest.substr(0, comma);
    }
    return true;
}

} // namespace

std::unique_ptr<WaveOut> CreateWaveOut(std::string_view choice, std::string* error)
{
    if (choice.empty() || choice == "alsa") {
        return std::make_unique<AlsaWaveOut>(std::string(kDefaultAlsaDevice));
    }
    if (choice.starts_with("alsa:")) {
        const std::string_view device = choice.substr(5);
        if (device.empty()) {
            Fail(error, "no ALSA device after \"alsa:\"");
            return nullptr;
        }
        return std::make_unique<AlsaWaveOut>(std::string(device));
    }

    const bool isNull = choice == "null" || choice.starts_with("null:") || choice.starts_with("null,");
    const bool isCapture = choice.starts_with("capture:");
    if (!isNull && !isCapture) {
        Fail(error, "unknown audio output \"" + std::string(choice) +
                        "\" (use alsa[:DEVICE], null[:SPEED] or "
                        "capture:FILE.wav[:SPEED])");
        return nullptr;
    }
    std::string_view rest = choice.substr(isNull ? 4 : 8);
    WaveOutMisbehaviour misbehaviour;
    if (!TakeOptions(rest, &misbehaviour, error)) {
        return nullptr;
    }
    double speed = 1.0;
    std::string capturePath;
    if (isNull) {
        if (rest.starts_with(':') && !ParseSpeed(rest.substr(1), &speed)) {
            Fail(error, "bad speed \"" + std::string(rest.substr(1)) + "\" for the null audio output");
            return nullptr;
        }
        if (!rest.empty() && !rest.starts_with(':')) {
            Fail(error, "unexpected \"" + std::string(rest) + "\" after null");
            return nullptr;
        }
    } else {
        // A last ":SPEED" that does not parse belongs to the file name.
        const std::size_t colon = rest.rfind(':');
        if (colon != std::string_view::npos && ParseSpeed(rest.substr(colon + 1), &speed)) {
            rest = rest.substr(0, colon);
        }
        if (rest.empty()) {
            Fail(error, "no file name after \"capture:\"");
            return nullptr;
        }
        capturePath = std::string(rest);
    }
    auto out = std::make_unique<NullWaveOut>(speed, std::move(capturePath));
    out->SetMisbehaviour(misbehaviour);
    return out;
}

} // namespace talvo
