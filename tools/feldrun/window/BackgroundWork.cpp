#include "BackgroundWork.h"

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
    connect(&updateThread_, &QThread::finished, updater_, &QObject::deleteLater);
    connect(&importThread_, &QThread::finished, importer_, &QObject::deleteLater);
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
    updateThread_.quit();
    importThread_.requestInterruption();
    importThread_.quit();
    updateThread_.wait();
    importThread_.wait();
}

bool BackgroundWork::Update(const QString& urlOrTitle)
{
    if (updating_)
        return false;
    updating_ = true;
    QMetaObject::invokeMethod(
        updater_, [u = updater_, urlOrTitle] { u->Update(urlOrTitle); }, Qt::QueuedConnection);
    emit updateStarted();
    return true;
}

void BackgroundWork::EndUpdate(int failures)
{
    updating_ = false;
    emit updateFinished(failures);
}

void BackgroundWork::Import(const QStringList& paths)
{
    for (const QString& path : paths) {
        ++importsWaiting_;
        QMetaObject::invokeMethod(
            importer_, [w = importer_, path] { w->Import(path); }, Qt::QueuedConnection);
    }
}

void BackgroundWork::EndImport(const QString& path, const QString& programPath, const QString& error)
{
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
            emit progress(path, fraction);
        }
    });
    emit finished(path, ok ? talvo::DecodeFileName(QByteArray::fromStdString(result.programPath)) : QString(),
                  ok ? QString() : QString::fromStdString(importer.Error()));
}

} // namespace feldrun
