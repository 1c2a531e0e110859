#include "cfgclient/etcdclientsettings.h"

#include <QFile>
#include <cstdlib>

QString EtcdClientSettings::SecureEnvironment(const char* name)
{
    const char* value = secure_getenv(name);
    return value ? QFile::decodeName(value) : QString();
}
