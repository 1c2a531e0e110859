/// \file
/// The commit request event and its receiver in the main thread.
#ifndef CONFIGURATION_CFGEVENT_H
#define CONFIGURATION_CFGEVENT_H

#include "zentappstartup_export.h"

#include <QEvent>
#include <QObject>

class CfgCenter;

/// The event by which any thread asks the main thread to commit the
/// configuration (CfgCenter::PostCommitData).
class ZENTAPPSTARTUP_EXPORT CustomEvent : public QEvent
{
public:
    /// The event type number of a commit request.
    static const QEvent::Type COMMIT_DATA = static_cast<QEvent::Type>(1800);

    /// An event of `type` carrying `data` along (not owned).
    explicit CustomEvent(QEvent::Type type = COMMIT_DATA, void* data = nullptr);
    ~CustomEvent() override;

    /// Carried along, never read; commit requests post it null.
    void* m_pData;
};

/// The configuration centre's receiver of commit requests. It lives in the
/// thread that created the centre (the main thread), so commits posted from
/// any thread run there.
class ZENTAPPSTARTUP_EXPORT CfgEvent : public QObject
{
    Q_OBJECT

public:
    /// A receiver without parent for `center`, living in the calling thread.
    explicit CfgEvent(CfgCenter* center);
    ~CfgEvent() override;

    /// The centre the receiver was made for (not owned).
    CfgCenter* GetCfgCenter() const { return m_pCfgCenter; }

protected:
    /// Commits the configuration for an event of type 1800; ignores others.
    void customEvent(QEvent* event) override;

private:
    CfgCenter* m_pCfgCenter;
};

#endif
