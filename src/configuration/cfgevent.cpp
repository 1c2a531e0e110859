#include "configuration/cfgevent.h"

#include "configuration/cfgcenter.h"
#include "kvbase/errorhandler.h"
#include "kvbase/kvexception.h"

CustomEvent::CustomEvent(QEvent::Type type, void* data) : QEvent(type), m_pData(data) {}

CustomEvent::~CustomEvent() = default;

CfgEvent::CfgEvent(CfgCenter* center) : QObject(nullptr), m_pCfgCenter(center) {}

CfgEvent::~CfgEvent() = default;

void CfgEvent::customEvent(QEvent* event)
{
    if (event->type() != CustomEvent::COMMIT_DATA)
        return;
    // Exceptions must not cross the event loop: the failure goes to the user.
    try {
        CfgCenter::CommitData();
    } catch (const KVException& exception) {
        ErrorHandler::Instance().Message(exception.GetMessage(), ErrorHandler::MSG_Error,
                                         exception.GetOperation(), exception.GetClassName());
    }
}
