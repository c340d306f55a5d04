#pragma once

#include <QHash>
#include <QString>
#include <optional>

// The script editor's index of declarations in one buffer: functions (function f(,
// const f = (...) =>, const f = function() and variables (const/let/var x =). The last
// declaration of a name wins; a range is that of the identifier alone, in UTF-16 units.
class DeclarationIndex {
public:
    struct Range {
        int location = -1;
        int length = 0;
        bool operator==(const Range &) const = default;
    };
    struct Word {
        QString text;
        Range range;
    };

    void parse(const QString &text);
    const QHash<QString, Range> &functionDeclarations() const { return m_functions; }
    const QHash<QString, Range> &variableDeclarations() const { return m_variables; }

    // The identifier around index; nullopt at or past the end or off an identifier.
    static std::optional<Word> wordAt(const QString &text, int index);
    // Where the word at index is declared: functions first, then variables; nullopt when it
    // is no declared name, or is the declaration itself.
    std::optional<Range> declarationAt(const QString &text, int index) const;

private:
    QHash<QString, Range> m_functions;
    QHash<QString, Range> m_variables;
};
