#include "kvbase/zentos.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImageReader>
#include <QNetworkInterface>
#include <QPixmap>
#include <QThread>

#include <atomic>
#include <cstdlib>
#include <memory>

namespace {

std::atomic<ZentOS*> g_replacement{nullptr};

// A QIcon made from a file name asks every image plug-in whether it reads
// the file, which loads them all (and their libraries) at start-up; icons are
// PNG files, read here by Qt's own reader. Without a GUI application there
// are no pixmaps yet, and the icon reads its file when first drawn.
QIcon PngIcon(const QString& path)
{
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        return QIcon(path);
    QImageReader reader(path, "png");
    reader.setAutoDetectImageFormat(false);
    const QPixmap pixmap = QPixmap::fromImageReader(&reader);
    return pixmap.isNull() ? QIcon(path) : QIcon(pixmap);
}

} // namespace

ZentOS::ZentOS() = default;

ZentOS::~ZentOS() = default;

ZentOS& ZentOS::Create()
{
    if (ZentOS* replacement = g_replacement.load())
        return *replacement;
    static ZentOS platform;
    return platform;
}

ZentOS& ZentOS::Get()
{
    return Create();
}

void ZentOS::SetInstance(ZentOS* instance)
{
    g_replacement.store(instance);
}

QString ZentOS::GetLocalAddress(int index) const
{
    // Callers walk the addresses index by index from 0; asking the system
    // once per walk, not once per index, also gives the walk one consistent list.
    thread_local QList<QHostAddress> addresses;
    if (index == 0)
        addresses = QNetworkInterface::allAddresses();
    if (index < 0 || index >= addresses.size())
        return QString();
    return addresses.at(index).toString();
}

bool ZentOS::IsAppThread() const
{
    const unsigned long mainThread = GetMainThreadId();
    if (mainThread != 0)
        return mainThread == GetCurrentThreadId();
    const QCoreApplication* app = QCoreApplication::instance();
    return app && QThread::currentThread() == app->thread();
}

void ZentOS::ExitProcess(int exitCode)
{
    std::_Exit(exitCode);
}

QIcon ZentOS::GetIcon(int number) const
{
    const QString fileName = QStringLiteral("icons/%1.png").arg(number);
    const QString productDir = GetProductDir();
    if (!productDir.isEmpty() && QFileInfo::exists(productDir + QLatin1Char('/') + fileName))
        return PngIcon(productDir + QLatin1Char('/') + fileName);
    const QString builtIn = QStringLiteral(":/kvbase/") + fileName;
    if (QFileInfo::exists(builtIn))
        return PngIcon(builtIn);
    return QIcon();
}
