#include "threading/safethreadswitchingbase.h"

#include <QtTest>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

using ThreadingHelper::SafeThreadSwitchingBase;
using ThreadingHelper::SafeThreadSwitchingListener;

namespace {

class Tracked : public SafeThreadSwitchingBase
{
};

/// Counts its notifications and records their order in a shared log.
class CountingListener : public SafeThreadSwitchingListener
{
public:
    explicit CountingListener(QString name = QString(), QStringList* log = nullptr,
                              std::function<void()> onNotify = {})
        : m_name(std::move(name)), m_log(log), m_onNotify(std::move(onNotify))
    {
    }
    void notifyDeletion() override
    {
        ++m_count;
        if (m_log)
            m_log->append(m_name);
        if (m_onNotify)
            m_onNotify();
    }
    int count() const { return m_count.load(); }

private:
    QString m_name;
    QStringList* m_log;
    std::function<void()> m_onNotify;
    std::atomic<int> m_count{0};
};

} // namespace

class tst_SafeThreadSwitchingBase : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    void liveObjectAcceptsListener()
    {
        CountingListener listener;
        {
            Tracked object;
            QCOMPARE(SafeThreadSwitchingBase::addListenerIfValid(&object, &listener), true);
        }
        QCOMPARE(listener.count(), 1);
    }

    void pointerNeverConstructedIsRefused()
    {
        // Storage of the right size that never ran the constructor.
        alignas(Tracked) unsigned char storage[sizeof(Tracked)] = {};
        CountingListener listener;
        QCOMPARE(SafeThreadSwitchingBase::addListenerIfValid(reinterpret_cast<Tracked*>(storage), &listener),
                 false);
        QCOMPARE(SafeThreadSwitchingBase::addListenerIfValid(nullptr, &listener), false);
    }

    void destroyedObjectIsRefused()
    {
        CountingListener listener;
        auto object = std::make_unique<Tracked>();
        // Kept as a number: the address is only compared, never used.
        volatile quintptr address =
            reinterpret_cast<quintptr>(static_cast<SafeThreadSwitchingBase*>(object.get()));
        object.reset();
        QCOMPARE(SafeThreadSwitchingBase::addListenerIfValid(
                     reinterpret_cast<SafeThreadSwitchingBase*>(address), &listener),
                 false);
        QCOMPARE(listener.count(), 0);
    }

    void destructionNotifiesListenersInOrderOfAddition()
    {
        QStringList log;
        CountingListener a(QStringLiteral("A"), &log), b(QStringLiteral("B"), &log),
            c(QStringLiteral("C"), &log);
        {
            Tracked object;
            QVERIFY(SafeThreadSwitchingBase::addListenerIfValid(&object, &b));
            QVERIFY(SafeThreadSwitchingBase::addListenerIfValid(&object, &a));
            QVERIFY(SafeThreadSwitchingBase::addListenerIfValid(&object, &c));
            QCOMPARE(log, QStringList());
        }
        QCOMPARE(log, (QStringList{"B", "A", "C"}));
    }

    void listenerAddedTwiceIsNotifiedTwice()
    {
        CountingListener listener;
        {
            Tracked object;
            QVERIFY(SafeThreadSwitchingBase::addListenerIfValid(&object, &listener));
            QVERIFY(SafeThreadSwitchingBase::addListenerIfValid(&object, &listener));
        }
        QCOMPARE(listener.count(), 2);
    }

    void removeListenerRemovesEveryOccurrence()
    {
        CountingListener removed, kept;
        {
            Tracked object;
            QVERIFY(SafeThreadSwitchingBase::addListenerIfValid(&object, &removed));
            QVERIFY(SafeThreadSwitchingBase::addListenerIfValid(&object, &kept));
            QVERIFY(SafeThreadSwitchingBase::addListenerIfValid(&object, &removed));
            object.removeListener(&removed);
        }
        QCOMPARE(removed.count(), 0);
        QCOMPARE(kept.count(), 1);
    }

    void removingAnAbsentListenerChangesNothing()
    {
        CountingListener added, absent;
        {
            Tracked object;
            QVERIFY(SafeThreadSwitchingBase::addListenerIfValid(&object, &added));
            object.removeListener(&absent);
        }
        QCOMPARE(added.count(), 1);
        QCOMPARE(absent.count(), 0);
    }

    void listenerMayRemoveItselfWhileNotified()
    {
        Tracked* object = new Tracked;
        CountingListener* self = nullptr;
        CountingListener listener(QString(), nullptr, [&] { object->removeListener(self); });
        self = &listener;
        QVERIFY(SafeThreadSwitchingBase::addListenerIfValid(object, &listener));
        delete object;
        QCOMPARE(listener.count(), 1);
    }

    void objectHasLeftTheSetWhenListenersHearOfIt()
    {
        Tracked* object = new Tracked;
        CountingListener late;
        bool lateAdded = true;
        CountingListener listener(QString(), nullptr, [&] {
            lateAdded = SafeThreadSwitchingBase::addListenerIfValid(object, &late);
        });
        QVERIFY(SafeThreadSwitchingBase::addListenerIfValid(object, &listener));
        delete object;
        QCOMPARE(lateAdded, false);
        QCOMPARE(late.count(), 0);
    }

    void listenersAddedWhileObjectDiesAreNotifiedExactlyWhenAccepted()
    {
        // Threads keep adding listeners while the object is destroyed: each
        // accepted listener hears of the deletion once, each refused one never.
        constexpr int threadCount = 8;
        constexpr int listenersPerThread = 2000;
        for (int round = 0; round < 20; ++round) {
            auto* object = new Tracked;
            std::vector<std::unique_ptr<CountingListener>> listeners(threadCount * listenersPerThread);
            for (auto& listener : listeners)
                listener = std::make_unique<CountingListener>();
            std::vector<char> accepted(listeners.size(), 0);
            std::atomic<bool> go{false};
            std::vector<std::thread> threads;
            for (int t = 0; t < threadCount; ++t) {
                threads.emplace_back([&, t] {
                    while (!go.load())
                        std::this_thread::yield();
                    for (int i = t * listenersPerThread; i < (t + 1) * listenersPerThread; ++i)
                        accepted[i] = SafeThreadSwitchingBase::addListenerIfValid(object, listeners[i].get());
                });
            }
            go.store(true);
            std::this_thread::yield();
            delete object;
            for (auto& thread : threads)
                thread.join();
            for (size_t i = 0; i < listeners.size(); ++i)
                QCOMPARE(listeners[i]->count(), accepted[i] ? 1 : 0);
        }
    }
};

QTEST_GUILESS_MAIN(tst_SafeThreadSwitchingBase)
#include "tst_safethreadswitchingbase.moc"
