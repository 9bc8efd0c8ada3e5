#pragma once
// What the window has done away from its own thread: subscription updates
// (the FeedUpdater, on a thread of its own) and imports of books (one at a
// time, on another).  The window talks to both only through queued calls and
// signals, so it never waits for the network or for packing.

#include "feldrun/BookImporter.h"
#include "feldrun/FeedUpdater.h"

#include <QObject>
#include <QStringList>
#include <QThread>

#include <memory>

namespace feldrun {

class BookImportWorker;

class BackgroundWork : public QObject {
    Q_OBJECT
public:
    BackgroundWork(talvo::Registry& registry, UpdateOptions updates, ImportOptions imports,
                   QObject* parent = nullptr);
    ~BackgroundWork() override;

    // Lives on the update thread: connect to its signals, never call it.
    FeedUpdater& Updater() { return *updater_; }

    // Starts an update of every subscription, or of the one given; false
    // (and nothing started) while one runs.
    bool Update(const QString& urlOrTitle = {});
    bool Updating() const { return updating_; }

    // Queues books (files or folders) for import; they are brought in one
    // after the other.
    void Import(const QStringList& paths);
    int ImportsWaiting() const { return importsWaiting_; }

signals:
    void updateStarted();
    void updateFinished(int failures);
    // fraction: 0 to 1 of the book being imported.
    void importProgress(const QString& path, double fraction);
    // error: empty when the book was brought in as programPath.
    void importFinished(const QString& path, const QString& programPath, const QString& error);

private:
    void EndUpdate(int failures);
    void EndImport(const QString& path, const QString& programPath, const QString& error);

    QThread updateThread_;
    QThread importThread_;
    FeedUpdater* updater_;
    BookImportWorker* importer_;
    bool updating_ = false;
    int importsWaiting_ = 0;
};

// Runs the import's reader and packer for one book at a time on the import
// thread, reporting through signals.
class BookImportWorker : public QObject {
    Q_OBJECT
public:
    explicit BookImportWorker(ImportOptions options) : options_(std::move(options)) {}

public slots:
    void Import(const QString& path);

signals:
    void progress(const QString& path, double fraction);
    void finished(const QString& path, const QString& programPath, const QString& error);

private:
    ImportOptions options_;
};

} // namespace feldrun
