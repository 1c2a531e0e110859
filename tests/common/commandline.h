#ifndef TESTS_COMMON_COMMANDLINE_H
#define TESTS_COMMON_COMMANDLINE_H

#include <QByteArray>
#include <QList>

#include <vector>

/// A writable command line as main() receives it. The count is a member, because
/// the Qt application object keeps a reference to it for its whole life.
class CommandLine
{
public:
    explicit CommandLine(const QList<QByteArray>& args) : m_args(args), m_count(args.size())
    {
        for (QByteArray& arg : m_args)
            m_pointers.push_back(arg.data());
        m_pointers.push_back(nullptr);
    }
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    int& argc() { return m_count; }
    char** argv() { return m_pointers.data(); }

private:
    QList<QByteArray> m_args;
    int m_count;
    std::vector<char*> m_pointers;
};

#endif
