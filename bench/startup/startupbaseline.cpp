// The baseline of the start-up benchmark: what a bare Qt application does to
// read its configuration file, a QApplication and a QDomDocument, up to its
// first event-loop turn.
//
//   startupbaseline <file> [--with-windows]
//
// With --with-windows it also shows what zentdemo shows: the splash picture
// named in the file, centred, and a main window with the document's machine
// view in a tree and a few input fields.
#include <QApplication>
#include <QCheckBox>
#include <QDomDocument>
#include <QFile>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QScreen>
#include <QSpinBox>
#include <QTimer>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

void AddElement(const QDomElement& element, QTreeWidgetItem* parent)
{
    for (QDomElement child = element.firstChildElement(); !child.isNull();
         child = child.nextSiblingElement()) {
        const bool isValue = child.firstChild().isText();
        auto* item = new QTreeWidgetItem(parent, {child.tagName(), isValue ? child.text() : QString()});
        if (!isValue)
            AddElement(child, item);
    }
}

std::unique_ptr<QLabel> ShowSplash(const QDomDocument& document)
{
    const QString image = document.documentElement()
                              .firstChildElement(QStringLiteral("Machine"))
                              .firstChildElement(QStringLiteral("DemoApp"))
                              .firstChildElement(QStringLiteral("Startup"))
                              .firstChildElement(QStringLiteral("SplashImage"))
                              .text();
    std::unique_ptr<QLabel> splash(new QLabel(nullptr, Qt::SplashScreen | Qt::FramelessWindowHint));
    const QPixmap pixmap(image);
    splash->setPixmap(pixmap);
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    splash->move(area.left() + (area.width() - pixmap.width()) / 2,
                 area.top() + (area.height() - pixmap.height()) / 2);
    splash->show();
    return splash;
}

std::unique_ptr<QMainWindow> ShowMainWindow(const QDomDocument& document)
{
    std::unique_ptr<QMainWindow> window(new QMainWindow);
    auto* central = new QWidget;
    auto* layout = new QVBoxLayout(central);
    auto* tree = new QTreeWidget;
    tree->setHeaderLabels({QStringLiteral("Name"), QStringLiteral("Value")});
    AddElement(document.documentElement().firstChildElement(QStringLiteral("Machine")),
               tree->invisibleRootItem());
    tree->expandAll();
    layout->addWidget(tree);
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Greeting:"), new QLineEdit(QStringLiteral("Hello")));
    form->addRow(QStringLiteral("Volume:"), new QSpinBox);
    form->addRow(QString(), new QCheckBox(QStringLiteral("Show tips at start")));
    layout->addLayout(form);
    window->setCentralWidget(central);
    window->resize(620, 560);
    window->show();
    return window;
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QFile file(argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("Cfg.xml"));
    QDomDocument document;
    if (!file.open(QIODevice::ReadOnly) || !document.setContent(&file)) {
        std::fprintf(stderr, "startupbaseline: cannot read %s\n", qPrintable(file.fileName()));
        return 1;
    }
    std::unique_ptr<QLabel> splash;
    std::unique_ptr<QMainWindow> window;
    if (argc > 2 && std::strcmp(argv[2], "--with-windows") == 0) {
        splash = ShowSplash(document);
        window = ShowMainWindow(document);
    }
    QTimer::singleShot(0, [] {
        std::puts("startupbaseline: first event-loop turn");
        std::fflush(stdout);
        QCoreApplication::quit();
    });
    return app.exec();
}
