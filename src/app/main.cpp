// The player's entry point: everything lives in the talvo library.
#include <QApplication>
#include <QLabel>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    // Until the main window lands, show the product name so the start-up path can be exercised.
    QLabel window(QStringLiteral("TalvoPlayer"));
    window.setWindowTitle(QStringLiteral("TalvoPlayer"));
    window.resize(240, 320);
    window.show();
    return app.exec();
}
