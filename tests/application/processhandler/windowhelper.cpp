// Shows one window at 40,50 sized 300x200 until it is ended.
#include <QApplication>
#include <QWidget>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QWidget window;
    window.setWindowTitle(QStringLiteral("processhandler window"));
    window.setGeometry(40, 50, 300, 200);
    window.show();
    return app.exec();
}
