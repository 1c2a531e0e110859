#ifndef BENCH_CFGBENCHSUPPORT_H
#define BENCH_CFGBENCHSUPPORT_H

// Shared parts of the benchmark programs that measure the configuration
// classes themselves: the process they run in and the XML document they save.
// Kept apart from benchsupport.h, which programs without the library use too.

#include "benchsupport.h"

#include "configuration/cfgcentertestaccess.h"
#include "configuration/cfgxml.h"
#include "kvbase/zentos.h"

#include <QCoreApplication>
#include <QDir>
#include <QMutex>
#include <QString>
#include <QTemporaryDir>

#include <cstdio>

namespace Bench {

/// CfgXml with its protected save opened for the benchmarks.
class XmlDocument : public CfgXml
{
public:
    using CfgXml::CfgXml;
    using CfgXml::SaveDocument;
};

/// What a benchmark program sets up before it measures: the application, the
/// configuration centre's lock as an application holds it, and a temporary
/// folder that is the current folder (the export side file would land there).
class Session
{
public:
    Session(int& argc, char** argv) : m_app(argc, argv), m_mutex(QMutex::Recursive)
    {
        ZentOS::Get().InitGuiProcess();
        CfgCenterTestAccess::SetMutex(&m_mutex);
        if (m_directory.isValid())
            QDir::setCurrent(m_directory.path());
        else
            std::fprintf(stderr, "cannot create a temporary folder\n");
    }
    ~Session() { CfgCenterTestAccess::SetMutex(nullptr); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// False when the temporary folder could not be made; the program then ends.
    bool IsValid() const { return m_directory.isValid(); }
    /// Whether the program was started with --quick (a smoke run).
    bool IsQuick() const { return QCoreApplication::arguments().contains(QStringLiteral("--quick")); }
    QString Directory() const { return m_directory.path(); }

private:
    QCoreApplication m_app;
    QMutex m_mutex;
    QTemporaryDir m_directory;
};

} // namespace Bench

#endif
