// Cards simulated by folders: a test or a user without removable media lists
// the folders that stand for cards in TALVOPLAYER_CARDS.
#include "platform/StorageCards.h"

#include "platform/FileNames.h"

#include <QDir>

namespace talvo {
namespace {

class ListedStorageCards : public StorageCards {
public:
    std::vector<StorageCard> Enumerate() const override
    {
        std::vector<StorageCard> cards;
        const QStringList folders =
            DecodeFileName(qgetenv(kStorageCardsVariable)).split(QLatin1Char(':'), Qt::SkipEmptyParts);
        for (const QString& folder : folders) {
            QString root = QDir::cleanPath(folder);
            QString name = root.section(QLatin1Char('/'), -1);
            // A card without a name could not be told apart from the root.
            if (name.isEmpty())
                continue;
            cards.push_back({name, root});
        }
        return cards;
    }
};

} // namespace

std::unique_ptr<StorageCards> CreateListedStorageCards()
{
    return std::make_unique<ListedStorageCards>();
}

} // namespace talvo
