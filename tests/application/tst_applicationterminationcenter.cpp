#include "application/applicationterminationcenter.h"
#include "application/iabstractterminationtarget.h"

#include <QtTest>

#include <functional>
#include <memory>

namespace {

QStringList g_notified;

class Target : public IAbstractTerminationTarget
{
public:
    explicit Target(QString name, std::function<void()> onNotify = {})
        : m_name(std::move(name)), m_onNotify(std::move(onNotify))
    {
    }
    void aboutToTerminate() override
    {
        g_notified << m_name;
        if (m_onNotify)
            m_onNotify();
    }

private:
    QString m_name;
    std::function<void()> m_onNotify;
};

} // namespace

class tst_ApplicationTerminationCenter : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        ApplicationTerminationCenter::instance().aboutToTerminate();
        g_notified.clear();
    }

    void instanceIsOneObject()
    {
        QCOMPARE(&ApplicationTerminationCenter::instance(), &ApplicationTerminationCenter::instance());
    }

    void targetsAreNotifiedInReverseOrder()
    {
        Target a(QStringLiteral("A")), b(QStringLiteral("B")), c(QStringLiteral("C"));
        ApplicationTerminationCenter::instance().aboutToTerminate();
        QCOMPARE(g_notified, (QStringList{"C", "B", "A"}));
    }

    void secondRunNotifiesNobody()
    {
        Target a(QStringLiteral("A"));
        ApplicationTerminationCenter::instance().aboutToTerminate();
        ApplicationTerminationCenter::instance().aboutToTerminate();
        QCOMPARE(g_notified, QStringList{"A"});
    }

    void secondRunNotifiesOnlyTargetsRegisteredSinceTheFirst()
    {
        Target a(QStringLiteral("A"));
        ApplicationTerminationCenter::instance().aboutToTerminate();
        Target b(QStringLiteral("B"));
        ApplicationTerminationCenter::instance().aboutToTerminate();
        QCOMPARE(g_notified, (QStringList{"A", "B"}));
    }

    void deletedTargetIsNotNotified()
    {
        Target a(QStringLiteral("A"));
        auto b = std::make_unique<Target>(QStringLiteral("B"));
        b.reset();
        ApplicationTerminationCenter::instance().aboutToTerminate();
        QCOMPARE(g_notified, QStringList{"A"});
    }

    void targetRegisteredTwiceIsNotifiedTwice()
    {
        Target a(QStringLiteral("A"));
        ApplicationTerminationCenter::instance().registerTerminationTarget(&a);
        ApplicationTerminationCenter::instance().aboutToTerminate();
        QCOMPARE(g_notified, (QStringList{"A", "A"}));
    }

    void deregisterRemovesEveryEntryAndIgnoresAbsentOnes()
    {
        Target a(QStringLiteral("A")), b(QStringLiteral("B"));
        ApplicationTerminationCenter& center = ApplicationTerminationCenter::instance();
        center.registerTerminationTarget(&a);
        center.deregisterTerminationTarget(&a);
        center.deregisterTerminationTarget(&a);
        center.aboutToTerminate();
        QCOMPARE(g_notified, QStringList{"B"});
    }

    void targetRegisteredDuringTheRunIsNotifiedInTheSameRun()
    {
        std::unique_ptr<Target> late;
        Target a(QStringLiteral("A"));
        Target b(QStringLiteral("B"), [&late] { late = std::make_unique<Target>(QStringLiteral("late")); });
        ApplicationTerminationCenter::instance().aboutToTerminate();
        QCOMPARE(g_notified, (QStringList{"B", "late", "A"}));
    }

    void targetDestroyedDuringTheRunIsNotFound()
    {
        auto a = std::make_unique<Target>(QStringLiteral("A"));
        Target b(QStringLiteral("B"), [&a] { a.reset(); });
        ApplicationTerminationCenter::instance().aboutToTerminate();
        QCOMPARE(g_notified, QStringList{"B"});
    }

    void copiedTargetIsNotRegistered()
    {
        Target a(QStringLiteral("A"));
        {
            Target copy(a);
            ApplicationTerminationCenter::instance().aboutToTerminate();
        }
        QCOMPARE(g_notified, QStringList{"A"});
        g_notified.clear();
        Target b(QStringLiteral("B"));
        {
            // Its destructor deregisters a pointer that was never registered: nothing changes.
            Target copy(b);
        }
        ApplicationTerminationCenter::instance().aboutToTerminate();
        QCOMPARE(g_notified, QStringList{"B"});
    }

    void nullTargetIsAcceptedWithoutCheck()
    {
        ApplicationTerminationCenter& center = ApplicationTerminationCenter::instance();
        center.registerTerminationTarget(nullptr);
        center.deregisterTerminationTarget(nullptr);
        Target a(QStringLiteral("A"));
        center.aboutToTerminate();
        QCOMPARE(g_notified, QStringList{"A"});
    }
};

QTEST_GUILESS_MAIN(tst_ApplicationTerminationCenter)
#include "tst_applicationterminationcenter.moc"
