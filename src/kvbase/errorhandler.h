/// \file
/// ErrorHandler, the logging categories and the trace and assertion macros.
#ifndef KVBASE_ERRORHANDLER_H
#define KVBASE_ERRORHANDLER_H

#include "kvbase/kvbase_export.h"

#include <QLoggingCategory>
#include <QMutex>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>

class CLogWriter;

/// The logging category "zent.trace" of written traces (what
/// Q_DECLARE_LOGGING_CATEGORY declares, exported from the library).
KVBASE_EXPORT const QLoggingCategory& lcZentTrace();
/// The logging category "zent.message" of messages to the user.
KVBASE_EXPORT const QLoggingCategory& lcZentMessage();

/// Error reporting and tracing of the product family.
///
/// Traces and assertions belong to one of seven categories; each is written
/// only while its bit is set in the message mask. A written trace goes to the
/// log tracer (when one is installed) and to the Qt logging category
/// "zent.trace" at debug level, so applications can route it with Qt's own
/// message handler and filter rules.
///
/// Messages are meant for the user: they are logged, sent to the logging
/// category "zent.message" and handed to the message presenter; without a
/// presenter, errors and warnings are shown in a message box when a GUI runs
/// on a real display, information is only logged. The message
/// dialog asks the user whether to continue; without a dialog (services,
/// tests, headless runs) callers take the "no" path.
class KVBASE_EXPORT ErrorHandler
{
public:
    /// The categories of traces and assertions, one bit each of the message
    /// mask; the configuration's logger settings switch them by these names.
    enum MessageCategory : unsigned
    {
        /// Requirements of callers.
        Q_KM_REQUIRE = 1,
        /// Assertions (see Assert).
        Q_KM_ASSERT = 2,
        /// Guarantees of operations.
        Q_ENSURE = 4,
        /// Entries of operations.
        Q_PREMETHOD = 8,
        /// Exits of operations.
        Q_POSTMETHOD = 16,
        /// Ordinary traces.
        Q_TRACE = 32,
        /// Detailed traces for experts.
        Q_EXPERT_TRACE = 64,
        /// Every category.
        ALL_CATEGORIES = 127
    };
    /// The severity of a message to the user.
    enum MessageKind
    {
        /// Something failed.
        MSG_Error = 0,
        /// Something is doubtful but the work goes on.
        MSG_Warning = 1,
        /// For the user's information; only logged without a presenter.
        MSG_Information = 2
    };

    /// Asks the user; returns true when the user chose "Continue".
    using MessageDialog = std::function<bool(const QString& text)>;
    /// Shows a message to the user.
    using MessagePresenter = std::function<void(MessageKind kind, const QString& text)>;

    /// The mask a process starts with: requirements, assertions and ordinary traces.
    static constexpr unsigned DEFAULT_MESSAGE_MASK = Q_KM_REQUIRE | Q_KM_ASSERT | Q_TRACE;

    /// The process's handler, made on first use.
    static ErrorHandler& Instance();

    /// The bits of the categories that are written.
    unsigned GetMessageMask() const { return m_uMessageMask.load(std::memory_order_relaxed); }
    /// Sets (on) or clears (off) the given bit or bits of the mask.
    void SetMessageMask(unsigned bit, bool on);
    /// Replaces the whole mask.
    void ResetMessageMask(unsigned mask = DEFAULT_MESSAGE_MASK);
    /// True when the mask shares a bit with `category`.
    bool IsEnabled(unsigned category) const { return (GetMessageMask() & category) != 0; }

    /// Writes one trace line when the category's bit is set.
    void Trace(unsigned category, const QString& text, const char* sourceFile, int line);
    /// Writes "Assertion failed: <condition>" when the condition is false and
    /// assertions are enabled. It never aborts: a failed assertion is a finding
    /// for the log, not a reason to lose the user's work.
    void Assert(bool condition, const char* conditionText, const char* sourceFile, int line);

    /// Reports a message to the user and to the log. It is delivered when
    /// `mask` is 0 or shares a bit with the message mask.
    void Message(const QString& text, MessageKind kind = MSG_Error, const QString& operation = QString(),
                 const QString& className = QString(), unsigned mask = 0);

    /// True when a message dialog can ask the user: a hook is installed, or a
    /// GUI application runs on a real display and this is its thread.
    bool HasMessageDialog() const;
    /// Shows `text` with a "Continue" choice; true when the user continued.
    /// Without a dialog the answer is false.
    bool ShowMessageDialog(const QString& text);
    /// Installs a dialog (tests, applications with their own); an empty function restores the default.
    void SetMessageDialog(MessageDialog dialog);
    /// Installs a presenter for messages; an empty function restores the default.
    void SetMessagePresenter(MessagePresenter presenter);

    /// The installed log tracer, still owned by the handler; null when none.
    CLogWriter* GetLogTracer() const;
    /// Takes ownership of `tracer`; the previous tracer is deleted.
    void SetLogTracer(CLogWriter* tracer);

    /// The source name traces carry: "/any/src/application/x.cpp" gives "application/x".
    static QString SourceName(const char* sourceFile);

private:
    ErrorHandler();
    ~ErrorHandler();
    ErrorHandler(const ErrorHandler&) = delete;
    ErrorHandler& operator=(const ErrorHandler&) = delete;

    void WriteLog(const QString& sourceName, int line, const QString& text);
    bool HasDefaultDialog() const;

    std::atomic<unsigned> m_uMessageMask;
    mutable QMutex m_mutex;
    std::unique_ptr<CLogWriter> m_pLogTracer;
    MessageDialog m_messageDialog;
    MessagePresenter m_messagePresenter;
};

/// An ordinary trace (category Q_TRACE). `source` is a name such as
/// "application/zentapplication" or the compiler's __FILE__.
#define _Q_Trace(text, source, line)                                                                         \
    do {                                                                                                     \
        if (ErrorHandler::Instance().IsEnabled(ErrorHandler::Q_TRACE))                                       \
            ErrorHandler::Instance().Trace(ErrorHandler::Q_TRACE, (text), (source), (line));                 \
    } while (false)

/// The older trace form: the category is named by the caller.
#define _Q_TraceOld(category, text)                                                                          \
    do {                                                                                                     \
        if (ErrorHandler::Instance().IsEnabled(category))                                                    \
            ErrorHandler::Instance().Trace((category), (text), __FILE__, __LINE__);                          \
    } while (false)

/// Checks a condition; the condition's text is what the log shows.
#define _Q_assert(condition, source, line)                                                                   \
    ErrorHandler::Instance().Assert(static_cast<bool>(condition), #condition, (source), (line))

#endif
