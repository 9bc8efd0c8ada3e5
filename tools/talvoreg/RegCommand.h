#pragma once
// talvoreg: query, add, delete, export and import registry keys and values,
// with the switches and output of the classic registry command.  Exit status
// 0 on success, 1 on any failure or when the user declines a prompt.
#include <QStringList>

#include <iosfwd>

namespace talvo::reg {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;

// arguments without the program name; prompts read answers from in.
int RunRegCommand(const QStringList& arguments, std::istream& in, std::ostream& out, std::ostream& err);

} // namespace talvo::reg
