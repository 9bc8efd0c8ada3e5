#pragma once
// A transaction on a Registry for the life of a scope: everything the scope's
// thread writes through that registry until Commit() reaches the store whole,
// and a scope left without Commit() (an early return, an error) undoes it.
//
//     RegistryTransaction transaction(registry);
//     if (transaction.status() != ERROR_SUCCESS)
//         return false;
//     ... registry calls ...
//     return transaction.Commit() == ERROR_SUCCESS;
#include "platform/Registry.h"

namespace talvo {

class RegistryTransaction {
public:
    explicit RegistryTransaction(Registry& registry)
        : registry_(registry), status_(registry.BeginTransaction())
    {
    }
    ~RegistryTransaction()
    {
        if (status_ == ERROR_SUCCESS && !ended_)
            registry_.EndTransaction(false);
    }
    RegistryTransaction(const RegistryTransaction&) = delete;
    RegistryTransaction& operator=(const RegistryTransaction&) = delete;

    // Whether the transaction began; when it did not, nothing is to be written.
    RegStatus status() const { return status_; }

    // Commits once; a second call, or one after a failed start, changes nothing.
    RegStatus Commit()
    {
        if (status_ != ERROR_SUCCESS)
            return status_;
        if (ended_)
            return ERROR_INVALID_PARAMETER;
        ended_ = true;
        return registry_.EndTransaction(true);
    }

private:
    Registry& registry_;
    RegStatus status_;
    bool ended_ = false;
};

} // namespace talvo
