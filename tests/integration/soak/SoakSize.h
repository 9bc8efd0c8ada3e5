#pragma once
// A soak's size: its variable when set (by `make soak`), else the small size
// that `make test` runs.
#include <QByteArray>
#include <algorithm>

namespace talvo::test {

inline int SoakSize(const char* variable, int small)
{
    const QByteArray text = qgetenv(variable);
    return text.isEmpty() ? small : std::max(1, text.toInt());
}

} // namespace talvo::test
