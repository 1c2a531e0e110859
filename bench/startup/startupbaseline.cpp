// The baseline of the start-up benchmark: what a bare Qt application does to
// read its configuration file, a QApplication and a QDomDocument, up to its
// first event-loop turn. startupbaseline [file], default Cfg.xml.
#include <QApplication>
#include <QDomDocument>
#include <QFile>
#include <QTimer>

#include <cstdio>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QFile file(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("Cfg.xml"));
    QDomDocument document;
    if (!file.open(QIODevice::ReadOnly) || !document.setContent(&file)) {
        std::fprintf(stderr, "startupbaseline: cannot read %s\n", qPrintable(file.fileName()));
        return 1;
    }
    QTimer::singleShot(0, [] {
        std::puts("startupbaseline: first event-loop turn");
        std::fflush(stdout);
        QCoreApplication::quit();
    });
    return app.exec();
}
