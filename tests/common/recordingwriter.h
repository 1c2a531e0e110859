#ifndef TESTS_COMMON_RECORDINGWRITER_H
#define TESTS_COMMON_RECORDINGWRITER_H

#include "kvbase/clogwriter.h"

#include <QStringList>

/// A log writer that keeps "source:line text" of every line, for exact comparisons.
class RecordingWriter : public CLogWriter
{
public:
    explicit RecordingWriter(QStringList* lines) : m_lines(lines) {}
    void Write(const QString& sourceFile, int line, const QString& text) override
    {
        m_lines->append(sourceFile + QLatin1Char(':') + QString::number(line) + QLatin1Char(' ') + text);
    }

private:
    QStringList* m_lines;
};

#endif
