/// \file
/// TranslationCenter: the process-wide owner of the Qt translators.
#ifndef APPLICATION_TRANSLATIONCENTER_H
#define APPLICATION_TRANSLATIONCENTER_H

#include "application/iabstractterminationtarget.h"
#include "zentappstartup_export.h"

#include <QString>
#include <QStringList>

#include <map>

class QTranslator;

/// One registered translation name: its installed translator (null when no
/// file was found or loaded, or while unloaded) and how often it was registered.
struct TrEntry
{
    /// An entry for `translator` (may be null) registered `refCount` times.
    TrEntry(QTranslator* translator, int refCount) : m_pTranslator(translator), m_nRefCount(refCount) {}

    /// The installed translator, owned by the centre; null when none is loaded.
    QTranslator* m_pTranslator;
    /// How often the name was registered.
    int m_nRefCount;
};

/// The process-wide owner of the Qt translators.
///
/// Every module registers the base name of its translation files; for the
/// language `de` the centre looks for "<name>_de.qm" in the current
/// directory, beside the executable and in the product directory, loads the
/// first it finds and installs it into the Qt application. A language change
/// unloads every translator and loads the registered names anew; the
/// termination notice unloads them for good. What was loaded, what failed and
/// what was missing is traced at the end of each complete load.
///
/// Meant for the main thread; only the creation of the singleton is thread-safe.
class ZENTAPPSTARTUP_EXPORT TranslationCenter : public IAbstractTerminationTarget
{
public:
    /// The one centre, made on first use; it registers "qt" and "KVBase".
    static TranslationCenter& Instance();
    ~TranslationCenter() override;

    /// Switches to the configured language ("Language", see GetLanguageFromCfg).
    void Init();
    /// Switches to `language`; an empty language means no translation.
    void Init(const QString& language);

    /// Counts a registration of `name`; the first one loads its translation
    /// for the current language (traced with the next complete load).
    void Register(const QString& name);
    /// Drops one registration; the last one removes the translator.
    void Unregister(const QString& name);

    /// Qt's translation of an ASCII `text`; a text with other characters comes
    /// back as it is, and without a Qt application the result is empty.
    QString translate(const char* context, QString text, const char* disambiguation);

    /// The machine-view value "Language" of the application configuration, or
    /// of the administration configuration when that is empty.
    static QString GetLanguageFromCfg();
    /// As GetLanguageFromCfg, for "Font".
    static QString GetFontFromCfg();
    /// As GetLanguageFromCfg, for "WindowsFont".
    static QString GetWindowsFontFromCfg();

    /// Unloads every translator; the registrations stay.
    void aboutToTerminate() override;

private:
    TranslationCenter();
    TranslationCenter(const TranslationCenter&) = delete;
    TranslationCenter& operator=(const TranslationCenter&) = delete;

    static QString GetStringFromAppOrAdminCfg(const QString& name);

    void Load();
    QTranslator* Load(const QString& name);
    void Unload();
    void Unload(QTranslator* translator);
    void TraceCollectedLoadMessages();
    QString FindTranslationFile(const QString& fileName) const;

    QString m_strLanguage;
    QStringList m_loaded;
    QStringList m_failed;
    QStringList m_notFound;
    std::map<QString, TrEntry> m_entries;

    friend class TranslationCenterTestAccess;
};

#endif
