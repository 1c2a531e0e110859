#include "kvbase/zentos.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QNetworkInterface>
#include <QThread>

#include <atomic>
#include <cstdlib>
#include <memory>

namespace {

std::atomic<ZentOS*> g_replacement{nullptr};

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
    const QList<QHostAddress> addresses = QNetworkInterface::allAddresses();
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
        return QIcon(productDir + QLatin1Char('/') + fileName);
    const QString builtIn = QStringLiteral(":/kvbase/") + fileName;
    if (QFileInfo::exists(builtIn))
        return QIcon(builtIn);
    return QIcon();
}
