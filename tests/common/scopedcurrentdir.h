#ifndef TESTS_COMMON_SCOPEDCURRENTDIR_H
#define TESTS_COMMON_SCOPEDCURRENTDIR_H

#include <QDir>
#include <QString>
#include <QTemporaryDir>

/// Makes `path` the working directory while it lives.
class ScopedCurrentDir
{
public:
    explicit ScopedCurrentDir(const QString& path) : m_sPrevious(QDir::currentPath())
    {
        QDir::setCurrent(path);
    }
    ~ScopedCurrentDir() { QDir::setCurrent(m_sPrevious); }
    ScopedCurrentDir(const ScopedCurrentDir&) = delete;
    ScopedCurrentDir& operator=(const ScopedCurrentDir&) = delete;

private:
    QString m_sPrevious;
};

/// A temporary directory that is the working directory while it lives; the
/// earlier one is current again before the directory is removed.
class CurrentTemporaryDir : public QTemporaryDir
{
public:
    CurrentTemporaryDir() : m_current(isValid() ? path() : QDir::currentPath()) {}

private:
    ScopedCurrentDir m_current;
};

#endif
