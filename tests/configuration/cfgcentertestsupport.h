#ifndef TESTS_CONFIGURATION_CFGCENTERTESTSUPPORT_H
#define TESTS_CONFIGURATION_CFGCENTERTESTSUPPORT_H

#include "cfgcenterlifecycletestaccess.h"
#include "common/recordingwriter.h"
#include "common/scopedcurrentdir.h"
#include "common/scopedenvironment.h"
#include "configuration/cfgcenter.h"
#include "configuration/cfgifdlldescriptor.h"
#include "kvbase/errorhandler.h"
#include "kvbase/zentos.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QPair>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>
#include <utility>
#include <vector>

/// Captures every trace line while it lives, as "<source> <text>" (the line
/// number dropped, since it moves with the code), and puts the default mask
/// back afterwards.
class TraceLog
{
public:
    explicit TraceLog(unsigned mask = ErrorHandler::DEFAULT_MESSAGE_MASK)
    {
        ErrorHandler::Instance().ResetMessageMask(mask);
        ErrorHandler::Instance().SetLogTracer(new RecordingWriter(&m_lines));
    }
    ~TraceLog()
    {
        ErrorHandler::Instance().SetLogTracer(nullptr);
        ErrorHandler::Instance().ResetMessageMask();
    }
    TraceLog(const TraceLog&) = delete;
    TraceLog& operator=(const TraceLog&) = delete;

    /// Every line, without its line number.
    QStringList Lines() const
    {
        QStringList lines;
        for (const QString& line : m_lines) {
            const int space = line.indexOf(QLatin1Char(' '));
            const int colon = line.lastIndexOf(QLatin1Char(':'), space);
            lines.append(line.left(colon) + line.mid(space));
        }
        return lines;
    }
    /// The texts of the lines whose source is `source`.
    QStringList Texts(const QString& source) const
    {
        QStringList texts;
        const QString prefix = source + QLatin1Char(' ');
        for (const QString& line : Lines()) {
            if (line.startsWith(prefix))
                texts.append(line.mid(prefix.size()));
        }
        return texts;
    }
    /// The lines of the given sources, in order.
    QStringList LinesOf(const QStringList& sources) const
    {
        QStringList selected;
        for (const QString& line : Lines()) {
            if (sources.contains(line.left(line.indexOf(QLatin1Char(' ')))))
                selected.append(line);
        }
        return selected;
    }
    void Clear() { m_lines.clear(); }

private:
    QStringList m_lines;
};

/// Records what reaches the user: messages through the presenter and
/// questions through the message dialog, which answers `continueAnswer`.
/// Without a dialog (`withDialog` false) the process has none, as a service.
class UserChannel
{
public:
    explicit UserChannel(bool withDialog = true, bool continueAnswer = true)
    {
        ErrorHandler::Instance().SetMessagePresenter(
            [this](ErrorHandler::MessageKind kind, const QString& text) {
                messages.append({kind, text});
            });
        if (withDialog) {
            ErrorHandler::Instance().SetMessageDialog([this, continueAnswer](const QString& text) {
                questions.append(text);
                return continueAnswer;
            });
        }
    }
    ~UserChannel()
    {
        ErrorHandler::Instance().SetMessagePresenter({});
        ErrorHandler::Instance().SetMessageDialog({});
    }
    UserChannel(const UserChannel&) = delete;
    UserChannel& operator=(const UserChannel&) = delete;

    QList<QPair<ErrorHandler::MessageKind, QString>> messages;
    QStringList questions;
};

/// A system whose local addresses the test chooses; everything else is the real one.
class AddressZentOS : public ZentOS
{
public:
    explicit AddressZentOS(QStringList addresses) : m_addresses(std::move(addresses))
    {
        ZentOS::SetInstance(this);
    }
    ~AddressZentOS() override { ZentOS::SetInstance(nullptr); }

    QString GetLocalAddress(int index) const override
    {
        ++addressQueries;
        return index < m_addresses.size() ? m_addresses.at(index) : QString();
    }

    mutable int addressQueries = 0;

private:
    QStringList m_addresses;
};

inline bool WriteTextFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    return file.write(content) == content.size();
}

inline QByteArray ReadTextFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// What every test of a configuration centre needs: a temporary folder as
/// working directory (where "cfgarg.xml" and side files go), the registry and
/// the test service's document in it, the test service client as the client
/// library, and a process with no centre afterwards.
class CentreFixture
{
public:
    /// False when the temporary folder could not be made.
    bool Init()
    {
        m_pDir = std::make_unique<QTemporaryDir>();
        if (!m_pDir->isValid())
            return false;
        m_pCurrentDir = std::make_unique<ScopedCurrentDir>(m_pDir->path());
        m_pEnvironment = std::make_unique<ScopedEnvironment>();
        m_pEnvironment->Set("ZENT_REGISTRY_DIR", QFile::encodeName(Path(QStringLiteral("registry"))));
        m_pEnvironment->Set("ZENT_TEST_CFGSERVER_DIR", QFile::encodeName(m_pDir->path()));
        m_pEnvironment->Set("ZENT_TEST_CFGSERVER_DOWN", QByteArray());
        CfgCenterLifecycleTestAccess::ResetProcessState();
        CfgIfDllDescriptor::s_pDllFileName = "tstcfgclient.dll";
        ErrorHandler::Instance().ResetMessageMask();
        return true;
    }

    /// Tears down whatever a test left (a centre, or the remains of a failed
    /// construction) and restores the process.
    void Cleanup()
    {
        CfgCenter::UnloadAdditionalDlls();
        try {
            CfgCenter::Exit();
        } catch (...) {
        }
        CfgCenterLifecycleTestAccess::ResetProcessState();
        CfgIfDllDescriptor::s_pDllFileName = "CfgClient.dll";
        ErrorHandler::Instance().ResetMessageMask();
        m_pEnvironment.reset();
        m_pCurrentDir.reset();
        m_pDir.reset();
    }

    QString Path(const QString& name) const { return m_pDir->filePath(name); }

    /// Writes an XML configuration document whose machine view holds `machine`
    /// (and whose user view holds `user`).
    bool WriteDocument(const QString& fileName, const QByteArray& machine,
                       const QByteArray& user = QByteArray())
    {
        return WriteTextFile(Path(fileName),
                             "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<Cfg version=\"2.2\">"
                             "<System/><Domain/><Machine>" +
                                 machine + "</Machine><User>" + user + "</User></Cfg>\n");
    }

private:
    std::unique_ptr<QTemporaryDir> m_pDir;
    std::unique_ptr<ScopedCurrentDir> m_pCurrentDir;
    std::unique_ptr<ScopedEnvironment> m_pEnvironment;
};

#endif
