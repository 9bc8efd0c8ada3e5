// main() for tests that need a QApplication: widgets, the event loop, timers.
#include <QApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    // Tests never need a display; ctest also sets this, a direct run may not.
    qputenv("QT_QPA_PLATFORM",
            qgetenv("QT_QPA_PLATFORM").isEmpty() ? "offscreen" : qgetenv("QT_QPA_PLATFORM"));
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
