#ifndef TESTS_CONFIGURATION_FAKEZENTOS_H
#define TESTS_CONFIGURATION_FAKEZENTOS_H

#include "kvbase/zentos.h"

#include <QFileDevice>
#include <QStringList>

/// A scripted operating system: a fixed workstation name and a clock the
/// test sets; the durability calls are counted and passed on. Installed for
/// its lifetime.
class FakeZentOS : public ZentOS
{
public:
    FakeZentOS() { ZentOS::SetInstance(this); }
    ~FakeZentOS() override { ZentOS::SetInstance(nullptr); }

    std::wstring GetWorkStationName() const override { return workStationName; }
    qint64 GetTime() const override { return time; }
    bool IsAppThread() const override { return isAppThread; }
    bool SyncFile(QFileDevice& file) override
    {
        syncedFiles.append(file.fileName());
        return ZentOS::SyncFile(file);
    }
    bool SyncDirectory(const QString& path) override
    {
        syncedDirectories.append(path);
        return ZentOS::SyncDirectory(path);
    }

    std::wstring workStationName = L"WORKSTATION7";
    qint64 time = 1000000;
    bool isAppThread = true;
    QStringList syncedFiles;
    QStringList syncedDirectories;
};

#endif
