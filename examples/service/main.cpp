// zentheartbeat: a small service on the library's Service class. Once systemd
// has started it, it writes a heartbeat line through Log every second until
// it is stopped (SIGTERM, as `systemctl stop` sends).

#include <application/log.h>
#include <application/service.h>

#include <QString>
#include <QStringList>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

namespace {

class HeartbeatService : public Service
{
public:
    HeartbeatService() : Service(QStringLiteral("ZentHeartbeat")) {}

    bool HasRun() const { return m_bHasRun; }

protected:
    void OnStart(const QStringList&) override
    {
        m_bHasRun = true;
        Log::WriteLine(Name() + QStringLiteral(" started"));
        std::unique_lock<std::mutex> lock(m_mutex);
        for (int beat = 1; !m_bStopping; ++beat) {
            if (m_stopped.wait_for(lock, std::chrono::seconds(1), [this] { return m_bStopping; }))
                break;
            Log::WriteLine(QStringLiteral("heartbeat %1").arg(beat));
        }
        Log::WriteLine(Name() + QStringLiteral(" stopped"));
    }

private:
    // Called on the thread that runs Exec, while OnStart runs on its own.
    void OnStop() override
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_bStopping = true;
        m_stopped.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_stopped;
    bool m_bStopping = false;
    bool m_bHasRun = false;
};

} // namespace

int main(int argc, char** argv)
{
    // Service::Exec takes the wide-character vector of the Windows entry point.
    std::vector<std::wstring> wideArgs;
    for (int i = 0; i < argc; ++i)
        wideArgs.push_back(QString::fromLocal8Bit(argv[i]).toStdWString());
    std::vector<wchar_t*> wideArgv;
    for (std::wstring& arg : wideArgs)
        wideArgv.push_back(&arg[0]);
    wideArgv.push_back(nullptr);

    HeartbeatService service;
    service.Exec(argc, wideArgv.data());
    if (!service.HasRun()) {
        std::fprintf(stderr, "zentheartbeat: not run as a systemd service (see zentheartbeat.service)\n");
        return 1;
    }
    return 0;
}
