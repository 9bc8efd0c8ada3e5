// Runs the fuzz target over files and folders given on the command line, for
// builds without libFuzzer: every sample of the corpus must pass without a
// crash or a sanitizer report.  A file named *.hex is a regression input
// kept as text: its bytes are the file's text with every \xNN escape read as
// that byte, and a line end after the last character left out.

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int HexDigit(uint8_t c)
{
    if (std::isdigit(c))
        return c - '0';
    return std::isxdigit(c) ? (c | 0x20) - 'a' + 10 : -1;
}

std::vector<uint8_t> Unescape(const std::vector<uint8_t>& text)
{
    std::vector<uint8_t> bytes;
    size_t end = text.size();
    while (end > 0 && (text[end - 1] == '\n' || text[end - 1] == '\r'))
        --end;
    for (size_t i = 0; i < end; ++i) {
        const bool escape = text[i] == '\\' && i + 3 < end && text[i + 1] == 'x' &&
                            HexDigit(text[i + 2]) >= 0 && HexDigit(text[i + 3]) >= 0;
        if (escape) {
            bytes.push_back(uint8_t(HexDigit(text[i + 2]) << 4 | HexDigit(text[i + 3])));
            i += 3;
        } else {
            bytes.push_back(text[i]);
        }
    }
    return bytes;
}

void RunOne(const std::filesystem::path& file)
{
    std::ifstream in(file, std::ios::binary);
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), {});
    if (file.extension() == ".hex")
        bytes = Unescape(bytes);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

} // namespace

int main(int argc, char** argv)
{
    size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg = argv[i];
        if (std::filesystem::is_directory(arg)) {
            for (const auto& entry : std::filesystem::directory_iterator(arg))
                if (entry.is_regular_file())
                    RunOne(entry.path()), ++count;
        } else {
            RunOne(arg), ++count;
        }
    }
    std::printf("replayed %zu inputs\n", count);
    return count > 0 ? 0 : 1;
}
