#include "platform/StorageCards.h"

namespace talvo {

std::unique_ptr<StorageCards> CreateStorageCards()
{
    if (qEnvironmentVariableIsSet(kStorageCardsVariable))
        return CreateListedStorageCards();
    return CreateMountedStorageCards();
}

} // namespace talvo
