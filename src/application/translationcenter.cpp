#include "application/translationcenter.h"

#include "configuration/cfgcenter.h"
#include "kvbase/errorhandler.h"
#include "kvbase/zentos.h"
#include "kvbase/zentstring.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTranslator>

namespace {

const char* const SOURCE_NAME = "application/translationcenter";

const QString LOADED_HEADER =
    QStringLiteral("Translation: Successfully loaded the following translation files: ");
const QString FAILED_HEADER = QStringLiteral("Translation: Could not load the following translation files: ");
const QString NOT_FOUND_HEADER =
    QStringLiteral("Translation: Could not find the following translation files: ");

QString pathInDirectory(const QString& directory, const QString& fileName)
{
    return QDir::toNativeSeparators(directory + QLatin1Char('/') + fileName);
}

void traceAndClear(const QString& header, QStringList& paths)
{
    if (paths.isEmpty())
        return;
    _Q_Trace(header + paths.join(QStringLiteral(", ")), SOURCE_NAME, 193);
    paths.clear();
}

} // namespace

TranslationCenter::TranslationCenter()
{
    Register(QStringLiteral("qt"));
    Register(QStringLiteral("KVBase"));
}

TranslationCenter::~TranslationCenter()
{
    Unload();
}

TranslationCenter& TranslationCenter::Instance()
{
    static TranslationCenter center;
    return center;
}

void TranslationCenter::Init()
{
    Init(GetLanguageFromCfg());
}

void TranslationCenter::Init(const QString& language)
{
    if (!m_strLanguage.isEmpty())
        Unload();
    m_strLanguage = language;
    Load();
}

void TranslationCenter::Register(const QString& name)
{
    const auto it = m_entries.find(name);
    if (it != m_entries.end()) {
        ++it->second.m_nRefCount;
        return;
    }
    m_entries.emplace(name, TrEntry(Load(name), 1));
}

void TranslationCenter::Unregister(const QString& name)
{
    const auto it = m_entries.find(name);
    if (it == m_entries.end())
        return;
    if (it->second.m_nRefCount >= 2) {
        --it->second.m_nRefCount;
        return;
    }
    Unload(it->second.m_pTranslator);
    m_entries.erase(it);
}

QString TranslationCenter::translate(const char* context, QString text, const char* disambiguation)
{
    if (!Zent::isAsciiString(text))
        return text;
    if (!QCoreApplication::instance())
        return QString();
    return QCoreApplication::translate(context, text.toLatin1().constData(), disambiguation, -1);
}

QString TranslationCenter::GetLanguageFromCfg()
{
    return GetStringFromAppOrAdminCfg(QStringLiteral("Language"));
}

QString TranslationCenter::GetFontFromCfg()
{
    return GetStringFromAppOrAdminCfg(QStringLiteral("Font"));
}

QString TranslationCenter::GetWindowsFontFromCfg()
{
    return GetStringFromAppOrAdminCfg(QStringLiteral("WindowsFont"));
}

void TranslationCenter::aboutToTerminate()
{
    Unload();
}

QString TranslationCenter::GetStringFromAppOrAdminCfg(const QString& name)
{
    const QString value = CfgCenter::GetAppCfg(ICfg::VIEW_Machine).GetString(name, QString());
    if (!value.isEmpty())
        return value;
    return CfgCenter::GetAdminCfg(ICfg::VIEW_Machine).GetString(name, QString());
}

void TranslationCenter::Load()
{
    for (auto it = m_entries.begin(); it != m_entries.end(); ++it) {
        // clang-format off
        _Q_assert(! it->second.m_pTranslator, SOURCE_NAME, 222);
        // clang-format on
        it->second.m_pTranslator = Load(it->first);
    }
    TraceCollectedLoadMessages();
}

QTranslator* TranslationCenter::Load(const QString& name)
{
    if (m_strLanguage.isEmpty())
        return nullptr;

    const QString path = FindTranslationFile(name + QLatin1Char('_') + m_strLanguage + QStringLiteral(".qm"));
    if (!QFileInfo::exists(path)) {
        m_notFound.append(path);
        return nullptr;
    }

    auto* translator = new QTranslator;
    if (!translator->load(path)) {
        m_failed.append(path);
        // Deliberately not deleted here. Parented to the application, it is
        // freed with it rather than leaked.
        translator->setParent(QCoreApplication::instance());
        return nullptr;
    }
    m_loaded.append(path);
    QCoreApplication::installTranslator(translator);
    return translator;
}

QString TranslationCenter::FindTranslationFile(const QString& fileName) const
{
    QString path = pathInDirectory(QDir::currentPath(), fileName);
    if (QFileInfo::exists(path))
        return path;
    path = pathInDirectory(QCoreApplication::applicationDirPath(), fileName);
    if (QFileInfo::exists(path))
        return path;
    const QString productDir = ZentOS::Get().GetProductDir();
    if (!productDir.isEmpty())
        path = pathInDirectory(productDir, fileName);
    // The last path tried, whether it exists or not.
    return path;
}

void TranslationCenter::Unload()
{
    for (auto& entry : m_entries) {
        Unload(entry.second.m_pTranslator);
        entry.second.m_pTranslator = nullptr;
    }
}

void TranslationCenter::Unload(QTranslator* translator)
{
    if (!translator)
        return;
    QCoreApplication::removeTranslator(translator);
    delete translator;
}

void TranslationCenter::TraceCollectedLoadMessages()
{
    traceAndClear(LOADED_HEADER, m_loaded);
    traceAndClear(FAILED_HEADER, m_failed);
    traceAndClear(NOT_FOUND_HEADER, m_notFound);
}
