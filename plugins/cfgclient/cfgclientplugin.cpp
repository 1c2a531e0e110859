// The entry points of libCfgClient.so, the configuration centre's "CfgClient.dll".
#include "cfgclient/cfgclient.h"

IDllInstance* KVCreateEx(const wchar_t* configKey, const wchar_t*)
{
    return new CfgClient(QString::fromWCharArray(configKey));
}

IDllInstance* KVCreate(const wchar_t* configKey)
{
    return new CfgClient(QString::fromWCharArray(configKey));
}

void KVDestroy(IDllInstance* instance)
{
    delete static_cast<CfgClient*>(instance);
}
