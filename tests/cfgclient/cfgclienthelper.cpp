// An application on the configuration service with the real client
// (libCfgClient.so). What reaches the user is printed as "<kind> <text>".
//
//   cfgclienthelper <document> start             creates the centre, prints "started"
//   cfgclienthelper <document> write NAME VALUE  writes App's NAME, prints "written <ms since 1970>"
//   cfgclienthelper <document> wait NAME VALUE   prints "ready", then, within 5 s, "seen <ms since 1970>"
//                                                when App's NAME reads VALUE (without reopening)
#include "configuration/cfgcenter.h"
#include "kvbase/errorhandler.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QTextStream>
#include <QThread>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    ErrorHandler::Instance().SetMessagePresenter([&out](ErrorHandler::MessageKind kind, const QString& text) {
        out << int(kind) << ' ' << text << '\n';
        out.flush();
    });
    const QStringList arguments = app.arguments();
    if (arguments.size() < 3)
        return 2;
    CfgCenter centre(QStringLiteral("App"), arguments.at(1), ICfg::VIEW_Machine, false, false, true);
    const QString mode = arguments.at(2);
    ICfg& cfg = CfgCenter::GetAppCfg(ICfg::VIEW_Machine);
    if (mode == QLatin1String("write")) {
        cfg.SetString(arguments.value(3), arguments.value(4));
        out << "written " << QDateTime::currentMSecsSinceEpoch() << '\n';
    } else if (mode == QLatin1String("wait")) {
        out << "ready\n";
        out.flush();
        QElapsedTimer timer;
        timer.start();
        while (cfg.GetString(arguments.value(3), QString()) != arguments.value(4)) {
            if (timer.elapsed() > 5000)
                return 3;
            QCoreApplication::processEvents();
            QThread::msleep(1);
        }
        out << "seen " << QDateTime::currentMSecsSinceEpoch() << '\n';
    } else {
        out << "started\n";
    }
    return 0;
}
