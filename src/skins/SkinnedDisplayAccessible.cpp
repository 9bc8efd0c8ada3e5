#include "skins/SkinnedDisplayAccessible.h"

#include "base/StringTable.h"
#include "skins/SkinnedDisplay.h"

#include <QAccessibleWidget>
#include <array>
#include <string_view>

namespace talvo {
namespace {

// What a screen reader calls each button, in the order of kSkinButtons.
constexpr std::array<std::string_view, kSkinButtonCount> kButtonNames = {
    "Jump back",        "Rewind",       "Play or stop", "Fast forward", "Program list",
    "Previous section", "Next section", "About",        "Volume down",  "Volume up",
};

// The texts of the screen, after the buttons.
enum class ShownText { Title, Time, Total, Section };
constexpr int kShownTextCount = 4;

// What the display's parts have in common: no object of their own, no
// children, the display's window and the display as parent.
class DisplayPartAccessible : public QAccessibleInterface {
public:
    explicit DisplayPartAccessible(SkinnedDisplay* display) : display_(display) {}

    bool isValid() const override { return display_ != nullptr; }
    QObject* object() const override { return nullptr; }
    QWindow* window() const override { return display_->window()->windowHandle(); }
    QAccessibleInterface* parent() const override { return QAccessible::queryAccessibleInterface(display_); }
    QAccessibleInterface* child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    QAccessibleInterface* childAt(int, int) const override { return nullptr; }
    QAccessibleInterface* focusChild() const override { return nullptr; }
    void setText(QAccessible::Text, const QString&) override {}

protected:
    SkinnedDisplay* display_;
};

class SkinButtonAccessible final : public DisplayPartAccessible, public QAccessibleActionInterface {
public:
    SkinButtonAccessible(SkinnedDisplay* display, std::size_t index)
        : DisplayPartAccessible(display), index_(index)
    {
    }

    QString text(QAccessible::Text t) const override
    {
        return t == QAccessible::Name
                   ? QString::fromLatin1(kButtonNames[index_].data(), kButtonNames[index_].size())
                   : QString();
    }
    QRect rect() const override { return display_->GlobalRectOfButton(index_); }
    QAccessible::Role role() const override { return QAccessible::Button; }
    QAccessible::State state() const override { return {}; }
    void* interface_cast(QAccessible::InterfaceType type) override
    {
        return type == QAccessible::ActionInterface ? static_cast<QAccessibleActionInterface*>(this)
                                                    : nullptr;
    }

    QStringList actionNames() const override { return {pressAction()}; }
    void doAction(const QString& action) override
    {
        if (action == pressAction())
            display_->TapButton(index_);
    }
    QStringList keyBindingsForAction(const QString&) const override { return {}; }

private:
    std::size_t index_;
};

class ShownTextAccessible final : public DisplayPartAccessible {
public:
    ShownTextAccessible(SkinnedDisplay* display, ShownText which)
        : DisplayPartAccessible(display), which_(which)
    {
    }

    QString text(QAccessible::Text t) const override
    {
        if (t != QAccessible::Name)
            return {};
        switch (which_) {
        case ShownText::Title:
            return display_->TitleText();
        case ShownText::Time:
            return display_->TimeText();
        case ShownText::Total:
            return display_->TotalText();
        case ShownText::Section:
            return display_->SectionText();
        }
        return {};
    }
    QRect rect() const override { return display_->rect().translated(display_->mapToGlobal(QPoint(0, 0))); }
    QAccessible::Role role() const override { return QAccessible::StaticText; }
    QAccessible::State state() const override
    {
        QAccessible::State s;
        s.readOnly = true;
        return s;
    }

private:
    ShownText which_;
};

class SkinnedDisplayAccessible final : public QAccessibleWidget {
public:
    explicit SkinnedDisplayAccessible(SkinnedDisplay* display)
        : QAccessibleWidget(display, QAccessible::Grouping)
    {
    }
    ~SkinnedDisplayAccessible() override
    {
        for (QAccessible::Id id : ids_)
            QAccessible::deleteAccessibleInterface(id);
    }

    // The screen as a whole is the player; its parts say what it shows.
    QString text(QAccessible::Text t) const override
    {
        return t == QAccessible::Name ? LoadString(Str::AppName) : QAccessibleWidget::text(t);
    }
    int childCount() const override { return int(kSkinButtonCount) + kShownTextCount; }
    QAccessibleInterface* child(int index) const override
    {
        if (index < 0 || index >= childCount())
            return nullptr;
        if (ids_[std::size_t(index)] == 0) {
            auto* display = static_cast<SkinnedDisplay*>(widget());
            QAccessibleInterface* made =
                index < int(kSkinButtonCount)
                    ? static_cast<QAccessibleInterface*>(
                          new SkinButtonAccessible(display, std::size_t(index)))
                    : new ShownTextAccessible(display, ShownText(index - int(kSkinButtonCount)));
            ids_[std::size_t(index)] = QAccessible::registerAccessibleInterface(made);
        }
        return QAccessible::accessibleInterface(ids_[std::size_t(index)]);
    }
    int indexOfChild(const QAccessibleInterface* child) const override
    {
        for (int i = 0; i < childCount(); ++i) {
            if (ids_[std::size_t(i)] != 0 && QAccessible::accessibleInterface(ids_[std::size_t(i)]) == child)
                return i;
        }
        return -1;
    }

private:
    mutable std::array<QAccessible::Id, kSkinButtonCount + kShownTextCount> ids_{};
};

QAccessibleInterface* makeInterface(const QString& className, QObject* object)
{
    if (className == QLatin1String("talvo::SkinnedDisplay") && object && object->isWidgetType())
        return new SkinnedDisplayAccessible(static_cast<SkinnedDisplay*>(object));
    return nullptr;
}

} // namespace

void InstallSkinnedDisplayAccessibility()
{
    static const bool installed = [] {
        QAccessible::installFactory(makeInterface);
        return true;
    }();
    (void)installed;
}

} // namespace talvo
