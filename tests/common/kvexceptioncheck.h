#ifndef TESTS_COMMON_KVEXCEPTIONCHECK_H
#define TESTS_COMMON_KVEXCEPTIONCHECK_H

#include "kvbase/kvexception.h"

#include <QString>
#include <QtTest>

#include <functional>
#include <optional>

/// The KVException `call` throws, if it throws one.
inline std::optional<KVException> CaughtKVException(const std::function<void()>& call)
{
    try {
        call();
    } catch (const KVException& e) {
        return e;
    }
    return std::nullopt;
}

/// Compares a caught KVException with what the library puts into one: the exact
/// texts, code -1 and, with `checkLine`, a line number.
inline void CompareKVException(const std::optional<KVException>& e, const QString& message,
                               const QString& sourceFile, const QString& className, const QString& operation,
                               bool checkLine = true)
{
    QVERIFY2(e.has_value(), "no exception");
    QCOMPARE(e->GetMessage(), message);
    QCOMPARE(e->GetSourceFile(), sourceFile);
    QCOMPARE(e->GetClassName(), className);
    QCOMPARE(e->GetOperation(), operation);
    QCOMPARE(e->GetCode(), -1);
    if (checkLine)
        QVERIFY(e->GetLine() > 0);
}

#endif
