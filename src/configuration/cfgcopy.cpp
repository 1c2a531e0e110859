#include "configuration/cfgcopy.h"

#include "configuration/cfgcenter.h"
#include "configuration/cfgcommand_p.h"
#include "configuration/icfg.h"

#include "kvbase/zentos.h"

#include <QFile>
#include <memory>

namespace {

const QString SOURCE_FILE = QStringLiteral("configuration/cfgcopy");
const QString CLASS_NAME = QStringLiteral("CfgCopy");

// The empty document of the older one-file format.
const char* const EMPTY_DESTINATION =
    "<?xml version = '1.0'?><Cfg version='2.0'><System/><Domain/><Machine/><User/></Cfg>";
// The type prefix ("Xml:") before the destination's file name.
constexpr int TYPE_PREFIX_LENGTH = 4;

void CreateMissingDestinationFile(const QString& type)
{
    // The prefix is stripped whatever the type; for a type without a file
    // ("Registry") the rest names a stray empty document, as it always has.
    // A configuration service names a host, never a file.
    if (type == QLatin1String("Server") || type.startsWith(QLatin1String("Server:")))
        return;
    const QString fileName = type.mid(TYPE_PREFIX_LENGTH);
    if (fileName.isEmpty() || QFile::exists(fileName))
        return;
    QFile file;
    if (ZentOS::Get().CreateNewFile(file, fileName))
        file.write(EMPTY_DESTINATION);
}

} // namespace

CfgCopy::CfgCopy(int argc, char** argv)
{
    if (argc != 5)
        CfgCommand::ExitWithUsage(
            "Four arguments are expected: source key and type, destination key and type.");
    const QString sourceType = CfgCommand::Argument(argv[2]);
    std::unique_ptr<ICfg> source = CfgCommand::RequireCfg(
        CfgCenter::CreateAppCfg(CfgCommand::KeyArgument(argv[1]), sourceType, ICfg::VIEW_Machine), sourceType,
        SOURCE_FILE, CLASS_NAME, __LINE__);
    const QString destinationType = CfgCommand::Argument(argv[4]);
    CreateMissingDestinationFile(destinationType);
    std::unique_ptr<ICfg> destination = CfgCommand::RequireCfg(
        CfgCenter::CreateAppCfg(CfgCommand::KeyArgument(argv[3]), destinationType, ICfg::VIEW_Machine),
        destinationType, SOURCE_FILE, CLASS_NAME, __LINE__);
    Copy(source.get(), destination.get());
    destination->SaveDocument();
}

CfgCopy::CfgCopy(const CfgCopy&) {}

CfgCopy& CfgCopy::operator=(const CfgCopy&)
{
    return *this;
}

CfgCopy::~CfgCopy() = default;

void CfgCopy::Copy(ICfg* source, ICfg* destination)
{
    for (int index = 0;; ++index) {
        const QString name = source->GetValueKeyAt(index);
        if (name.isEmpty())
            break;
        CopyValue(source, destination, name);
    }
    for (int index = 0;; ++index) {
        std::unique_ptr<ICfg> sub(source->CreateSubCfgAt(index));
        if (!sub)
            break;
        const QString name = sub->GetPartialKey();
        destination->AddSubCfg(name);
        std::unique_ptr<ICfg> destinationSub(destination->CreateSubCfg(name));
        // A name the destination cannot hold (not a valid element name) is skipped.
        if (destinationSub)
            Copy(sub.get(), destinationSub.get());
    }
}

void CfgCopy::CopyValue(ICfg* source, ICfg* destination, const QString& name)
{
    QString text = source->GetString(name, QString());
    const ICfg::AttributeType type = source->GetAttributeType(name);
    // The registry keeps integers apart from texts and reads no text for
    // them; their string form is the decimal number.
    if (text.isEmpty() && type == ICfg::TYPE_Integer) {
        const long number = source->GetInteger(name, 0);
        if (number == source->GetInteger(name, 1))
            text = QString::number(number);
    }
    destination->SetString(name, text);
    destination->SetAttributeType(name, type);
    destination->SetProtected(name, source->IsProtected(name));
}
