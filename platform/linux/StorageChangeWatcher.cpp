// The kernel marks /proc/self/mountinfo with POLLPRI whenever the mount table
// changes; a thread waits for that and then compares the cards.
#include "platform/StorageCards.h"

#include <algorithm>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

namespace talvo {
namespace {

constexpr const char* kMountInfoPath = "/proc/self/mountinfo";

bool Contains(const std::vector<StorageCard>& cards, const StorageCard& card)
{
    return std::find(cards.begin(), cards.end(), card) != cards.end();
}

} // namespace

struct StorageChangeWatcher::Impl {
    const StorageCards& cards;
    Callback callback;
    std::mutex lock; // one look at a time, so every change is reported once
    std::vector<StorageCard> known;
    int mountTable = -1;
    int stopEvent = -1;
    std::thread thread;

    Impl(const StorageCards& cards, Callback callback) : cards(cards), callback(std::move(callback)) {}

    void Watch()
    {
        pollfd fds[2] = {{mountTable, POLLPRI, 0}, {stopEvent, POLLIN, 0}};
        for (;;) {
            if (poll(fds, 2, -1) < 0) {
                if (errno == EINTR)
                    continue;
                return;
            }
            if (fds[1].revents != 0)
                return;
            if (fds[0].revents & (POLLERR | POLLPRI)) {
                // The mark stays until the table is read again from its start.
                char buffer[4096];
                lseek(mountTable, 0, SEEK_SET);
                while (read(mountTable, buffer, sizeof buffer) > 0) {
                }
                Look();
            }
        }
    }

    void Look()
    {
        std::lock_guard<std::mutex> guard(lock);
        std::vector<StorageCard> now = cards.Enumerate();
        for (const StorageCard& card : known) {
            if (!Contains(now, card))
                callback(StorageChange::MediaRemoved, card);
        }
        for (const StorageCard& card : now) {
            if (!Contains(known, card))
                callback(StorageChange::MediaInserted, card);
        }
        known = std::move(now);
    }
};

StorageChangeWatcher::StorageChangeWatcher(const StorageCards& cards, Callback callback)
    : impl_(std::make_unique<Impl>(cards, std::move(callback)))
{
    impl_->known = cards.Enumerate();
    impl_->mountTable = open(kMountInfoPath, O_RDONLY | O_CLOEXEC);
    impl_->stopEvent = eventfd(0, EFD_CLOEXEC);
    // Without the mount table there is nothing to wait for; Recheck still works.
    if (impl_->mountTable >= 0 && impl_->stopEvent >= 0)
        impl_->thread = std::thread([impl = impl_.get()] { impl->Watch(); });
}

StorageChangeWatcher::~StorageChangeWatcher()
{
    if (impl_->thread.joinable()) {
        std::uint64_t one = 1;
        [[maybe_unused]] ssize_t written = write(impl_->stopEvent, &one, sizeof one);
        impl_->thread.join();
    }
    if (impl_->mountTable >= 0)
        close(impl_->mountTable);
    if (impl_->stopEvent >= 0)
        close(impl_->stopEvent);
}

void StorageChangeWatcher::Recheck()
{
    impl_->Look();
}

} // namespace talvo
