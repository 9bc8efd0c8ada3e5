#include "BackgroundWork.h"

#include "platform/EventQueueHandOff.h"
#include "platform/FileNames.h"

namespace feldrun {
namespace {

// Progress is told at most this often (in steps of the book), so a long book
// does not flood the window's event queue.
constexpr double kProgressStep = 0.005;

} // namespace

BackgroundWork::BackgroundWork(talvo::Registry& registry, UpdateOptions updates, ImportOptions imports,
                               QObject* parent)
    : QObject(parent), updater_(new FeedUpdater(registry, std::move(updates))),
      importer_(new BookImportWorker(std::move(imports)))
{
    updateThread_.setObjectName(QStringLiteral("feldrun updates"));
    importThread_.setObjectName(QStringLiteral("feldrun imports"));
    updater_->moveToThread(&updateThread_);
    importer_->moveToThread(&importThread_);
    // Each worker is deleted on its own thread as that thread ends.
    talvo::DeleteAsThreadEnds(updateThread_, updater_);
    talvo::DeleteAsThreadEnds(importThread_, importer_);
    connect(updater_, &FeedUpdater::finished, this, &BackgroundWork::EndUpdate);
    connect(importer_, &BookImportWorker::progress, this, &BackgroundWork::importProgress);
    connect(importer_, &BookImportWorker::finished, this, &BackgroundWork::EndImport);
    updateThread_.start();
    importThread_.start();
}

BackgroundWork::~BackgroundWork()
{
    // An import or a download in flight is left behind under its temporary
    // name, which the next run replaces; the Music folder holds nothing half
    // written either way.
    talvo::HandOffToAnotherThread();
    updateThread_.quit();
    importThread_.requestInterruption();
    importThread_.quit();
    updateThread_.wait();
    importThread_.wait();
    talvo::TakeOverFromAnotherThread();
}

bool BackgroundWork::Update(const QString& urlOrTitle)
{
    if (updating_)
        return false;
    updating_ = true;
    talvo::PostToThreadOf(updater_, [u = updater_, urlOrTitle] { u->Update(urlOrTitle); });
    emit updateStarted();
    return true;
}

void BackgroundWork::EndUpdate(int failures)
{
    talvo::TakeOverFromAnotherThread();
    updating_ = false;
    emit updateFinished(failures);
}

void BackgroundWork::Import(const QStringList& paths)
{
    for (const QString& path : paths) {
        ++importsWaiting_;
        talvo::PostToThreadOf(importer_, [w = importer_, path] { w->Import(path); });
    }
}

void BackgroundWork::EndImport(const QString& path, const QString& programPath, const QString& error)
{
    talvo::TakeOverFromAnotherThread();
    --importsWaiting_;
    emit importFinished(path, programPath, error);
}

void BookImportWorker::Import(const QString& path)
{
    if (QThread::currentThread()->isInterruptionRequested())
        return;
    BookImporter importer(options_);
    ImportResult result;
    double told = -1;
    const bool ok = importer.Import(talvo::EncodeFileName(path).toStdString(), result, [&](double fraction) {
        if (fraction - told >= kProgressStep || fraction >= 1) {
            told = fraction;
            talvo::HandOffThroughEventQueue([&] { emit progress(path, fraction); });
        }
    });
    const QString programPath =
        ok ? talvo::DecodeFileName(QByteArray::fromStdString(result.programPath)) : QString();
    const QString error = ok ? QString() : QString::fromStdString(importer.Error());
    talvo::HandOffThroughEventQueue([&] { emit finished(path, programPath, error); });
}

} // namespace feldrun
