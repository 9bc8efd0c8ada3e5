#include "app/StoreOpening.h"

#include "base/StringTable.h"
#include "platform/MessageBox.h"
#include "platform/RegistryRecovery.h"
#include "platform/SystemError.h"

namespace talvo {
namespace {

// Below two of a unit, the next smaller one reads better ("90 minutes").
constexpr std::chrono::minutes kMinutesFrom{2};
constexpr std::chrono::hours kHoursFrom{2};
constexpr std::chrono::hours kDaysFrom{48};

void ShowStoreBox(const QString& text)
{
    ShowMessageBox(nullptr, text, LoadString(Str::ErrorCaption), kErrorBoxStyle);
}

// The cause in plain words: the system's text for the errno behind it, else
// what the store's status means.
QString CauseText(RegStatus status, int systemError)
{
    if (systemError != 0)
        return SystemErrorFromErrno(systemError).text;
    switch (status) {
    case ERROR_ACCESS_DENIED:
        return LoadString(Str::StoreCauseAccess);
    case ERROR_NOT_REGISTRY_FILE:
        return LoadString(Str::StoreCauseOtherKind);
    case ERROR_NOT_ENOUGH_MEMORY:
        return LoadString(Str::StoreCauseMemory);
    case ERROR_DISK_FULL:
        return SystemErrorTextForCode(ERROR_DISK_FULL);
    default:
        return LoadString(Str::StoreCauseDisk);
    }
}

QByteArray Utf8(const std::string& text)
{
    return QString::fromStdString(text).toUtf8();
}

void TellAboutRecovery(const std::string& path, const OpenedStore& opened)
{
    const StoreRecovery& recovery = *opened.recovery;
    const QByteArray aside = Utf8(recovery.keptAsidePath);
    if (!opened.registry) {
        ShowStoreBox(FormatString(
            Str::StoreRestoreFailed, aside.constData(), Utf8(LastGoodCopyPath(path)).constData(),
            CauseText(opened.status, opened.systemError).toUtf8().constData(), int(opened.status)));
    } else if (recovery.restored) {
        ShowStoreBox(FormatString(Str::StoreRestored, aside.constData(),
                                  AgeText(recovery.restoredAge).toUtf8().constData()));
    } else {
        ShowStoreBox(FormatString(Str::StoreStartedEmpty, aside.constData()));
    }
}

} // namespace

QString AgeText(std::chrono::seconds age)
{
    using namespace std::chrono;
    if (age >= kDaysFrom)
        return FormatString(Str::AgeDays, int(duration_cast<hours>(age).count() / 24));
    if (age >= kHoursFrom)
        return FormatString(Str::AgeHours, int(duration_cast<hours>(age).count()));
    if (age >= kMinutesFrom)
        return FormatString(Str::AgeMinutes, int(duration_cast<minutes>(age).count()));
    return LoadString(Str::AgeAMinute);
}

std::unique_ptr<Registry> OpenSettingsStore(const std::string& path)
{
    OpenedStore opened = OpenOrRecoverSqliteRegistry(path);
    if (opened.recovery)
        TellAboutRecovery(path, opened);
    else if (!opened.registry)
        ShowStoreBox(FormatString(Str::StoreCannotOpen, Utf8(path).constData(),
                                  CauseText(opened.status, opened.systemError).toUtf8().constData(),
                                  int(opened.status)));
    if (opened.registry)
        KeepLastGoodCopy(path, kLastGoodCopyMaxAge);
    return std::move(opened.registry);
}

void TellProgramStateNotSaved(const QString& title, RegStatus status, int systemError)
{
    const std::int32_t number = systemError != 0 ? ErrorCodeFromErrno(systemError) : std::int32_t{status};
    ShowStoreBox(FormatString(Str::ProgramStateNotSaved, title.toUtf8().constData(),
                              CauseText(status, systemError).toUtf8().constData(), int(number)));
}

void KeepLastGoodCopy(const std::string& path, std::optional<std::chrono::seconds> maxAge)
{
    int systemError = 0;
    const RegStatus status = SaveLastGoodCopy(path, maxAge, &systemError);
    if (status != ERROR_SUCCESS)
        ShowStoreBox(FormatString(Str::StoreCopyFailed, Utf8(LastGoodCopyPath(path)).constData(),
                                  CauseText(status, systemError).toUtf8().constData(), int(status)));
}

} // namespace talvo
