#include "kvbase/errorhandler.h"

#include "kvbase/clogwriter.h"

#include <QApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QThread>

Q_LOGGING_CATEGORY(lcZentTrace, "zent.trace", QtInfoMsg)
Q_LOGGING_CATEGORY(lcZentMessage, "zent.message")

namespace {

QString KindName(ErrorHandler::MessageKind kind)
{
    switch (kind) {
    case ErrorHandler::MSG_Error:
        return QStringLiteral("Error");
    case ErrorHandler::MSG_Warning:
        return QStringLiteral("Warning");
    case ErrorHandler::MSG_Information:
        return QStringLiteral("Information");
    }
    return QStringLiteral("Message");
}

// Offscreen and minimal platforms have nobody to click a button, so a modal
// box there would only hang the process.
bool IsRealDisplay()
{
    const auto* app = qobject_cast<QApplication*>(QCoreApplication::instance());
    if (!app || QThread::currentThread() != app->thread())
        return false;
    const QString platform = QGuiApplication::platformName();
    return platform != QLatin1String("offscreen") && platform != QLatin1String("minimal");
}

bool AskContinueInMessageBox(const QString& text)
{
    QMessageBox box(QMessageBox::Question, QCoreApplication::applicationName(), text);
    // The translation centre installs KVBase_<language>.qm for this text.
    QPushButton* continueButton =
        box.addButton(QCoreApplication::translate("KVBase", "Continue"), QMessageBox::AcceptRole);
    box.addButton(QMessageBox::Cancel);
    box.exec();
    return box.clickedButton() == continueButton;
}

// Only errors and warnings interrupt the user; information is for the log.
void ShowInMessageBox(ErrorHandler::MessageKind kind, const QString& text)
{
    const QString title = QCoreApplication::applicationName();
    if (kind == ErrorHandler::MSG_Error)
        QMessageBox::critical(nullptr, title, text);
    else if (kind == ErrorHandler::MSG_Warning)
        QMessageBox::warning(nullptr, title, text);
}

} // namespace

ErrorHandler::ErrorHandler() : m_uMessageMask(DEFAULT_MESSAGE_MASK) {}

ErrorHandler::~ErrorHandler() = default;

ErrorHandler& ErrorHandler::Instance()
{
    static ErrorHandler handler;
    return handler;
}

void ErrorHandler::SetMessageMask(unsigned bit, bool on)
{
    if (on)
        m_uMessageMask.fetch_or(bit, std::memory_order_relaxed);
    else
        m_uMessageMask.fetch_and(~bit, std::memory_order_relaxed);
}

void ErrorHandler::ResetMessageMask(unsigned mask)
{
    m_uMessageMask.store(mask, std::memory_order_relaxed);
}

QString ErrorHandler::SourceName(const char* sourceFile)
{
    // Traces name a source as its folder and file without extension
    // ("configuration/cfgxml"), whatever path the compiler saw.
    QString name = QString::fromUtf8(sourceFile ? sourceFile : "");
    const int fileStart = name.lastIndexOf(QLatin1Char('/')) + 1;
    const int folderStart = fileStart > 0 ? name.lastIndexOf(QLatin1Char('/'), fileStart - 2) + 1 : 0;
    name = name.mid(folderStart);
    const int dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot > name.lastIndexOf(QLatin1Char('/')))
        name.truncate(dot);
    return name;
}

void ErrorHandler::Trace(unsigned category, const QString& text, const char* sourceFile, int line)
{
    if (!IsEnabled(category))
        return;
    const QString source = SourceName(sourceFile);
    WriteLog(source, line, text);
    qCDebug(lcZentTrace).noquote() << source + QLatin1Char(':') + QString::number(line) << text;
}

void ErrorHandler::Assert(bool condition, const char* conditionText, const char* sourceFile, int line)
{
    if (condition || !IsEnabled(Q_KM_ASSERT))
        return;
    const QString text = QStringLiteral("Assertion failed: ") + QString::fromUtf8(conditionText);
    const QString source = SourceName(sourceFile);
    WriteLog(source, line, text);
    qCWarning(lcZentTrace).noquote() << source + QLatin1Char(':') + QString::number(line) << text;
}

void ErrorHandler::Message(const QString& text, MessageKind kind, const QString& operation,
                           const QString& className, unsigned mask)
{
    if (mask != 0 && (mask & GetMessageMask()) == 0)
        return;
    QString where = className;
    if (!operation.isEmpty())
        where += (where.isEmpty() ? QString() : QStringLiteral("::")) + operation;
    const QString logText = KindName(kind) + QStringLiteral(": ") +
                            (where.isEmpty() ? QString() : where + QStringLiteral(": ")) + text;
    WriteLog(className, 0, logText);
    switch (kind) {
    case MSG_Error:
        qCCritical(lcZentMessage).noquote() << logText;
        break;
    case MSG_Warning:
        qCWarning(lcZentMessage).noquote() << logText;
        break;
    case MSG_Information:
        qCInfo(lcZentMessage).noquote() << logText;
        break;
    }
    MessagePresenter presenter;
    {
        QMutexLocker lock(&m_mutex);
        presenter = m_messagePresenter;
    }
    if (presenter)
        presenter(kind, text);
    else if (IsRealDisplay())
        ShowInMessageBox(kind, text);
}

bool ErrorHandler::HasDefaultDialog() const
{
    return IsRealDisplay();
}

bool ErrorHandler::HasMessageDialog() const
{
    {
        QMutexLocker lock(&m_mutex);
        if (m_messageDialog)
            return true;
    }
    return HasDefaultDialog();
}

bool ErrorHandler::ShowMessageDialog(const QString& text)
{
    MessageDialog dialog;
    {
        QMutexLocker lock(&m_mutex);
        dialog = m_messageDialog;
    }
    if (dialog)
        return dialog(text);
    return HasDefaultDialog() && AskContinueInMessageBox(text);
}

void ErrorHandler::SetMessageDialog(MessageDialog dialog)
{
    QMutexLocker lock(&m_mutex);
    m_messageDialog = std::move(dialog);
}

void ErrorHandler::SetMessagePresenter(MessagePresenter presenter)
{
    QMutexLocker lock(&m_mutex);
    m_messagePresenter = std::move(presenter);
}

CLogWriter* ErrorHandler::GetLogTracer() const
{
    QMutexLocker lock(&m_mutex);
    return m_pLogTracer.get();
}

void ErrorHandler::SetLogTracer(CLogWriter* tracer)
{
    std::unique_ptr<CLogWriter> previous;
    QMutexLocker lock(&m_mutex);
    previous = std::move(m_pLogTracer);
    m_pLogTracer.reset(tracer);
}

void ErrorHandler::WriteLog(const QString& sourceName, int line, const QString& text)
{
    QMutexLocker lock(&m_mutex);
    if (m_pLogTracer)
        m_pLogTracer->Write(sourceName, line, text);
}
