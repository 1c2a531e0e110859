// Starts a configuration centre on the configuration service, as a
// server-backed application does, with the test service client. Everything
// that reaches the user is printed to standard output as "<kind> <text>";
// "started" follows when the centre was created.
#include "configuration/cfgcenter.h"
#include "configuration/cfgifdlldescriptor.h"
#include "kvbase/errorhandler.h"

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    ErrorHandler::Instance().SetMessagePresenter([&out](ErrorHandler::MessageKind kind, const QString& text) {
        out << int(kind) << ' ' << text << '\n';
        out.flush();
    });
    CfgIfDllDescriptor::s_pDllFileName = "tstcfgclient.dll";
    QString key = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral("App");
    CfgCenter centre(key);
    out << "started\n";
    return 0;
}
