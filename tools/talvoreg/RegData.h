#pragma once
// Value types by name and the text forms of value data that talvoreg reads
// (the /d argument of add) and prints (query).
#include "platform/Registry.h"

#include <QString>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace talvo::reg {

struct TypeName {
    DWORD type;
    const char* name;
};
inline constexpr std::array<TypeName, 7> kTypeNames{{
    {REG_SZ, "REG_SZ"},
    {REG_EXPAND_SZ, "REG_EXPAND_SZ"},
    {REG_MULTI_SZ, "REG_MULTI_SZ"},
    {REG_DWORD, "REG_DWORD"},
    {REG_QWORD, "REG_QWORD"},
    {REG_BINARY, "REG_BINARY"},
    {REG_NONE, "REG_NONE"},
}};
static_assert(kTypeNames[0].type == REG_SZ, "REG_SZ is the type add uses when /t is missing");

// The type named (without regard to case), or none.
std::optional<DWORD> TypeFromName(const QString& name);
// "REG_SZ", ..., or "REG_UNKNOWN" for a type outside the table.
QString TypeToName(DWORD type);

// What add /d means for each type: text for the string types (\0 separates
// the strings of REG_MULTI_SZ), a decimal or 0x number for REG_DWORD and
// REG_QWORD, hex digits for REG_BINARY, REG_NONE and unknown types.  On bad
// data returns none and puts the reason in *error.
std::optional<std::vector<std::uint8_t>> ParseData(DWORD type, const QString& text, QString* error);

// The data as query prints it.
QString FormatData(DWORD type, const std::vector<std::uint8_t>& data);

// Upper-case hex pairs without separators.
QString HexString(const std::vector<std::uint8_t>& data);

// The text of REG_SZ-like data when it is exactly UTF-16 text with one
// terminator and no character that a line-based format could not carry.
std::optional<QString> CleanText(const std::vector<std::uint8_t>& data);

} // namespace talvo::reg
