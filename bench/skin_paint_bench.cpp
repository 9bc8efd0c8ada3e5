// What drawing the skinned main screen costs, beside a bare QPainter blit of
// the same skin bitmap onto a surface of the same size, all in one run: a full
// repaint (everything composed anew and shown) and a position redraw (what
// every refill of a playing program costs: the time areas composed and shown).
#include "platform/MessageWindow.h"
#include "platform/Registry.h"
#include "skins/SkinList.h"
#include "skins/SkinnedDisplay.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QPainter>
#include <QTemporaryDir>
#include <cstdio>

using namespace talvo;

namespace {

constexpr int kRounds = 400;
constexpr int kBestOf = 5;

// Nanoseconds per call of work, the best of kBestOf runs of kRounds calls.
template <typename Work> double nanosecondsPer(Work work)
{
    double best = 1e300;
    for (int run = 0; run < kBestOf; ++run) {
        QElapsedTimer clock;
        clock.start();
        for (int i = 0; i < kRounds; ++i)
            work(i);
        best = std::min(best, double(clock.nsecsElapsed()) / kRounds);
    }
    return best;
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QTemporaryDir device;
    std::unique_ptr<Registry> registry = OpenSqliteRegistry(device.filePath("registry.db").toStdString());
    SkinList skins(*registry);
    skins.LoadSkins(QStringLiteral(TALVO_SKINS_PARENT), QSize(480, 640));
    SkinLayout* skin = skins.ActiveSkin();
    if (!skin) {
        std::fprintf(stderr, "skin_paint_bench: no skin in %s/Skins\n", TALVO_SKINS_PARENT);
        return 1;
    }
    MessageWindow window;
    SkinnedDisplay display(window);
    display.resize(skin->resolution.width, skin->resolution.height);
    display.SetSkin(skin);
    DisplayContent content;
    content.hasProgram = true;
    content.title = QStringLiteral("The Lighthouse Keeper");
    content.author = QStringLiteral("Bram Okafor");
    content.totalMs = 3600000;
    content.sectionCount = 12;
    content.section = 3;
    display.SetContent(content);
    display.show();
    QCoreApplication::processEvents();

    const QImage& bitmap = skin->Bitmap(SkinBitmap::Background);
    QImage surface(bitmap.size(), QImage::Format_ARGB32_Premultiplied);
    const double blit = nanosecondsPer([&](int) {
        QPainter painter(&surface);
        painter.drawImage(0, 0, bitmap);
    });
    const double full = nanosecondsPer([&](int i) {
        content.positionMs = std::uint32_t(i) * 1000;
        display.SetContent(content);
        display.repaint();
    });
    const double position = nanosecondsPer([&](int i) {
        display.SetPosition(std::uint32_t(i) * 1000, 3, 12);
        display.repaint(display.TakeComposedRegion().boundingRect());
    });
    std::printf("skin %s at %dx%d\n", qPrintable(QString::fromStdU16String(skin->name)),
                skin->resolution.width, skin->resolution.height);
    std::printf("bare blit of the skin bitmap   %8.1f us\n", blit / 1000);
    std::printf("full repaint                   %8.1f us  %.2fx the blit\n", full / 1000, full / blit);
    std::printf("position redraw                %8.1f us  %.2fx the blit (goal: at most 2x)\n",
                position / 1000, position / blit);
    return 0;
}
