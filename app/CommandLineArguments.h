#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// Walks a subcommand's arguments: flags, and options whose value comes as "--name=value" or
// as the next argument.
//
//     for (CommandLineArguments args(arguments); args.next();)
//         if (args.isOption(u"--port"_s)) port = args.value(u"--port"_s);
class CommandLineArguments {
public:
    explicit CommandLineArguments(const QStringList &arguments) : m_arguments(arguments) {}

    // Moves to the next argument; false past the last.
    bool next() { return ++m_index < m_arguments.size(); }
    const QString &current() const { return m_arguments.at(m_index); }
    bool is(QLatin1StringView flag) const { return current() == flag; }
    // "--name" or "--name=…".
    bool isOption(const QString &name) const
    {
        return current() == name || current().startsWith(name + QLatin1Char('='));
    }
    // The value of the option `name` at the current argument; "--name value" takes the next
    // argument too. Nothing when "--name" is the last argument.
    std::optional<QString> value(const QString &name)
    {
        if (current().startsWith(name + QLatin1Char('=')))
            return current().mid(name.size() + 1);
        if (m_index + 1 >= m_arguments.size())
            return std::nullopt;
        return m_arguments.at(++m_index);
    }

private:
    const QStringList &m_arguments;
    qsizetype m_index = -1;
};
