#ifndef TESTS_APPLICATION_ARGVECTOR_H
#define TESTS_APPLICATION_ARGVECTOR_H

#include <QByteArray>
#include <QList>

#include <vector>

/// A writable argc/argv pair over byte strings, as main() receives it.
class ArgVector
{
public:
    explicit ArgVector(const QList<QByteArray>& args) : m_args(args)
    {
        for (QByteArray& arg : m_args)
            m_pointers.push_back(arg.data());
        m_pointers.push_back(nullptr);
    }
    ArgVector(const ArgVector&) = delete;
    ArgVector& operator=(const ArgVector&) = delete;

    int argc() const { return m_args.size(); }
    char** argv() { return m_pointers.data(); }

private:
    QList<QByteArray> m_args;
    std::vector<char*> m_pointers;
};

#endif
