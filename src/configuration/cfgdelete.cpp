#include "configuration/cfgdelete.h"

#include "configuration/cfgcenter.h"
#include "configuration/cfgcommand_p.h"
#include "configuration/icfg.h"

#include <QStringList>
#include <memory>

namespace {

// Sub-configuration names are collected before the first removal, so that
// removing does not disturb the enumeration.
QStringList SubCfgKeys(ICfg& cfg)
{
    QStringList keys;
    for (int index = 0;; ++index) {
        std::unique_ptr<ICfg> sub(cfg.CreateSubCfgAt(index, ICfg::VIEW_Current));
        if (!sub)
            break;
        keys.append(sub->GetKey());
    }
    return keys;
}

} // namespace

CfgDelete::CfgDelete(int argc, char** argv)
{
    if (argc != 3)
        CfgCommand::ExitWithUsage("Two arguments are expected: key and type.");
    const QString key = CfgCommand::KeyArgument(argv[1]);
    const QString type = CfgCommand::Argument(argv[2]);
    for (const ICfg::View view : {ICfg::VIEW_Machine, ICfg::VIEW_User}) {
        std::unique_ptr<ICfg> cfg(CfgCenter::CreateAppCfg(key, type, view));
        if (!cfg)
            continue;
        if (!key.isEmpty()) {
            cfg->RemoveSubCfg(QString(), ICfg::VIEW_Current);
        } else {
            for (const QString& name : SubCfgKeys(*cfg))
                cfg->RemoveSubCfg(name, ICfg::VIEW_Current);
        }
        cfg->SaveDocument();
    }
}

CfgDelete::~CfgDelete() = default;
