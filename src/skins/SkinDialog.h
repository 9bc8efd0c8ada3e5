#pragma once
// Choosing the skin: the installed skins by name, a preview of the chosen one,
// and OK, which makes it the active skin, stores its name and posts 32780 so
// the main window redraws with it.  Cancel changes nothing.
//
// Two layouts: the touch layout with OK and Cancel under the list, and the
// key-driven one (smaller, with its keys on a bottom bar).  Either works from
// the keyboard alone: arrows move in the list, Enter is OK, Escape Cancel.
#include "platform/MessageWindow.h"
#include "skins/SkinList.h"

#include <QDialog>

class QListWidget;

namespace talvo {

class SkinPreview;

class SkinDialog final : public QDialog {
    Q_OBJECT
public:
    SkinDialog(SkinList& skins, MessageWindow& window, bool keyLayout, QWidget* parent = nullptr);

    void accept() override;
    void reject() override;

    // The entry of the list that is selected, or -1.
    int SelectedIndex() const;
    void Select(int index);

private:
    SkinList& skins_;
    MessageWindow& window_;
    QListWidget* list_ = nullptr;
    SkinPreview* preview_ = nullptr;
};

// The selected skin's "Background" picture, scaled to the preview's height
// keeping its shape and centred (cut at both sides when it is wider).
class SkinPreview final : public QWidget {
    Q_OBJECT
public:
    SkinPreview(SkinList& skins, QWidget* parent = nullptr) : QWidget(parent), skins_(skins) {}
    void SetSkinIndex(int index);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    SkinList& skins_;
    int index_ = -1;
};

} // namespace talvo
