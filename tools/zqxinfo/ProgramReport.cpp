#include "ProgramReport.h"

#include "zqx/TalvoMetadata.h"
#include "zqx/zqxsdk.h"

#include <array>
#include <cstdio>

namespace {

struct TypeName {
    int32_t type;
    const char* name;
};
constexpr std::array<TypeName, 5> kTypeNames = {{
    {ZQX_TYPE_ADPCM_8K, "IMA ADPCM 8 kHz mono"},
    {ZQX_TYPE_ADPCM_16K, "IMA ADPCM 16 kHz mono"},
    {ZQX_TYPE_OPUS, "Opus"},
    {ZQX_TYPE_MP3, "MPEG-2 Layer III 22050 Hz mono, 104-byte frames"},
    {ZQX_TYPE_PCM16, "16-bit PCM"},
}};

const char* TypeText(int32_t type)
{
    for (const TypeName& t : kTypeNames)
        if (t.type == type)
            return t.name;
    return "unknown";
}

std::u16string Utf8ToUtf16(const std::string& s)
{
    std::u16string out;
    for (size_t i = 0; i < s.size();) {
        const auto b = static_cast<uint8_t>(s[i]);
        char32_t c = 0xFFFD;
        size_t n = 1;
        if (b < 0x80)
            c = b;
        else if ((b & 0xE0) == 0xC0 && i + 1 < s.size())
            c = (b & 0x1F) << 6 | (s[i + 1] & 0x3F), n = 2;
        else if ((b & 0xF0) == 0xE0 && i + 2 < s.size())
            c = (b & 0x0F) << 12 | (s[i + 1] & 0x3F) << 6 | (s[i + 2] & 0x3F), n = 3;
        else if ((b & 0xF8) == 0xF0 && i + 3 < s.size())
            c = (b & 0x07) << 18 | (s[i + 1] & 0x3F) << 12 | (s[i + 2] & 0x3F) << 6 | (s[i + 3] & 0x3F),
            n = 4;
        i += n;
        if (c >= 0x10000) {
            out += char16_t(0xD800 + ((c - 0x10000) >> 10));
            out += char16_t(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out += char16_t(c);
        }
    }
    return out;
}

std::string Utf16ToUtf8(const std::u16string& s)
{
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        char32_t c = s[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < s.size())
            c = 0x10000 + ((c - 0xD800) << 10) + (s[++i] - 0xDC00);
        if (c < 0x80) {
            out += char(c);
        } else if (c < 0x800) {
            out += char(0xC0 | c >> 6);
            out += char(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += char(0xE0 | c >> 12);
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        } else {
            out += char(0xF0 | c >> 18);
            out += char(0x80 | ((c >> 12) & 0x3F));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::string Clock(uint32_t ms)
{
    char text[32];
    std::snprintf(text, sizeof text, "%02u:%02u:%02u.%03u", ms / 3600000, ms / 60000 % 60, ms / 1000 % 60,
                  ms % 1000);
    return text;
}

std::string Quoted(const std::string& s)
{
    std::string out = "\"";
    for (const char ch : s) {
        const auto c = static_cast<unsigned char>(ch);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += ch;
        } else if (c < 0x20) {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", c);
            out += esc;
        } else {
            out += ch;
        }
    }
    return out + "\"";
}

} // namespace

ProgramReport InspectProgram(const std::string& utf8Path)
{
    ProgramReport r;
    r.path = utf8Path;
    const std::u16string wide = Utf8ToUtf16(utf8Path);
    ZQXHANDLE h = 0;
    r.status = ZQXOpenFileWinW(&h, wide.c_str());
    if (r.status != ZQX_OK)
        return r;
    r.status = ZQXVerifyAudio(h);
    ZQXCloseFile(h);
    CTalvoMetadata m;
    if (r.status == ZQX_OK)
        r.status = m.OpenZQXFile(wide);
    if (r.status != ZQX_OK)
        return r;
    r.intact = true;
    r.fileType = m.GetFileType();
    r.sampleRate = m.GetSampleRate();
    r.channels = m.GetChannels();
    r.lengthMs = m.GetLengthMs();
    r.programId = m.GetProgramId();
    r.title = Utf16ToUtf8(m.GetTitle());
    r.author = Utf16ToUtf8(m.GetAuthor());
    r.narrator = Utf16ToUtf8(m.GetNarrator());
    r.provider = Utf16ToUtf8(m.GetProvider());
    r.description = Utf16ToUtf8(m.GetDescription());
    r.timeOffsetMs = m.GetTimeOffsetMs();
    r.spanFlag = m.GetTimeSpanFlag();
    r.spanStartMs = m.GetTimeSpanStart();
    r.spanEndMs = m.GetTimeSpanEnd();
    for (const auto& s : m.GetSections())
        r.sections.push_back({s.startMs, Utf16ToUtf8(s.title)});
    for (const auto& p : m.GetPictures())
        r.pictures.push_back({p.startMs, p.kind, p.byteLength});
    return r;
}

std::string RenderText(const ProgramReport& r)
{
    std::string out = "file:        " + r.path + "\n";
    if (!r.intact)
        return out + "integrity:   DAMAGED or unreadable (" + ZQXStatusName(r.status) + ", " +
               std::to_string(r.status) + ")\n";
    out += "type:        " + std::to_string(r.fileType) + " (" + TypeText(r.fileType) + ")\n";
    out += "audio:       " + std::to_string(r.sampleRate) + " Hz, " + std::to_string(r.channels) +
           " channel(s)\n";
    out += "length:      " + Clock(r.lengthMs) + "\n";
    out += "program id:  " + r.programId + "\n";
    out += "title:       " + r.title + "\n";
    out += "author:      " + r.author + "\n";
    out += "narrator:    " + r.narrator + "\n";
    out += "provider:    " + r.provider + "\n";
    out += "description: " + r.description + "\n";
    out += "time offset: " + std::to_string(r.timeOffsetMs) + " ms\n";
    out += "time span:   " +
           (r.spanFlag ? Clock(r.spanStartMs) + " - " + Clock(r.spanEndMs) : std::string("whole program")) +
           "\n";
    out += "sections:    " + std::to_string(r.sections.size()) + "\n";
    for (size_t i = 0; i < r.sections.size(); ++i)
        out += "  " + std::to_string(i) + "  " + Clock(r.sections[i].startMs) + "  " + r.sections[i].title +
               "\n";
    out += "pictures:    " + std::to_string(r.pictures.size()) + "\n";
    for (size_t i = 0; i < r.pictures.size(); ++i)
        out += "  " + std::to_string(i) + "  " + Clock(r.pictures[i].startMs) + "  " +
               (r.pictures[i].kind == 1 ? "JPEG" : "PNG") + ", " + std::to_string(r.pictures[i].bytes) +
               " bytes\n";
    return out + "integrity:   OK\n";
}

std::string RenderJson(const ProgramReport& r)
{
    std::string out = "{\n  \"file\": " + Quoted(r.path) + ",\n";
    out += "  \"intact\": " + std::string(r.intact ? "true" : "false") + ",\n";
    out += "  \"status\": " + Quoted(ZQXStatusName(r.status)) + ",\n";
    out += "  \"statusCode\": " + std::to_string(r.status);
    if (!r.intact)
        return out + "\n}\n";
    out += ",\n  \"fileType\": " + std::to_string(r.fileType) + ",\n";
    out += "  \"sampleRate\": " + std::to_string(r.sampleRate) + ",\n";
    out += "  \"channels\": " + std::to_string(r.channels) + ",\n";
    out += "  \"lengthMs\": " + std::to_string(r.lengthMs) + ",\n";
    out += "  \"programId\": " + Quoted(r.programId) + ",\n";
    out += "  \"title\": " + Quoted(r.title) + ",\n";
    out += "  \"author\": " + Quoted(r.author) + ",\n";
    out += "  \"narrator\": " + Quoted(r.narrator) + ",\n";
    out += "  \"provider\": " + Quoted(r.provider) + ",\n";
    out += "  \"description\": " + Quoted(r.description) + ",\n";
    out += "  \"timeOffsetMs\": " + std::to_string(r.timeOffsetMs) + ",\n";
    out += "  \"timeSpan\": {\"flag\": " + std::string(r.spanFlag ? "true" : "false") +
           ", \"startMs\": " + std::to_string(r.spanStartMs) + ", \"endMs\": " + std::to_string(r.spanEndMs) +
           "},\n";
    out += "  \"sections\": [";
    for (size_t i = 0; i < r.sections.size(); ++i)
        out += std::string(i ? ", " : "") + "{\"startMs\": " + std::to_string(r.sections[i].startMs) +
               ", \"title\": " + Quoted(r.sections[i].title) + "}";
    out += "],\n  \"pictures\": [";
    for (size_t i = 0; i < r.pictures.size(); ++i)
        out += std::string(i ? ", " : "") + "{\"startMs\": " + std::to_string(r.pictures[i].startMs) +
               ", \"kind\": " + Quoted(r.pictures[i].kind == 1 ? "jpeg" : "png") +
               ", \"bytes\": " + std::to_string(r.pictures[i].bytes) + "}";
    return out + "]\n}\n";
}
