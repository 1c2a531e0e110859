#ifndef ZENT_TOOLS_ZENTREG_REGUNDOLOG_H
#define ZENT_TOOLS_ZENTREG_REGUNDOLOG_H

#include "winreg/winreg.h"

#include <QByteArray>
#include <QList>
#include <QString>

/// What an import changed, so that a failure half-way can put it all back.
///
/// The registry functions know no transactions across calls (and an import
/// may touch both hives), so the import records the state of everything it
/// is about to change and, when a later step fails, restores it newest first.
class RegUndoLog
{
public:
    /// Call before creating a key: remembers the first key on the path that does not exist yet.
    void RecordKeyCreation(HKEY root, const QString& subKey);
    /// Call before writing or deleting a value: remembers it as it is now.
    void RecordValue(HKEY root, const QString& subKey, const QString& name);
    /// Call before deleting a key: remembers it with everything below it.
    void RecordKeyDeletion(HKEY root, const QString& subKey);
    /// Restores everything recorded, newest first.
    void Rollback();

    /// Deletes a key with everything below it; a missing key is no error.
    static LONG DeleteTree(HKEY root, const QString& subKey);

private:
    struct ValueState
    {
        QString name;
        DWORD type = REG_NONE;
        QByteArray data;
    };
    struct KeyState
    {
        QString name;
        QList<ValueState> values;
        QList<KeyState> children;
    };
    struct Step
    {
        enum Kind
        {
            RemoveTree,
            PutValue,
            RemoveValue,
            PutTree
        };
        Kind kind = RemoveTree;
        HKEY root = nullptr;
        QString subKey;
        ValueState value;
        KeyState tree;
    };

    static bool ReadValue(HKEY key, const QString& name, ValueState* value);
    static bool ReadTree(HKEY key, const QString& name, KeyState* tree);
    static void WriteTree(HKEY parent, const KeyState& tree);
    static void WriteValue(HKEY key, const ValueState& value);

    QList<Step> m_steps;
};

#endif
