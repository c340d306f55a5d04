#include "workbench/DeclarationIndex.h"

#include <QRegularExpression>

namespace {

bool isIdentifierUnit(QChar c)
{
    return c.isLetterOrNumber() || c == u'_' || c == u'$';
}

}  // namespace

void DeclarationIndex::parse(const QString &text)
{
    m_functions.clear();
    m_variables.clear();
    if (text.isEmpty())
        return;
    static const QRegularExpression functionKeyword(QStringLiteral(R"(\bfunction\s+([a-zA-Z_$][a-zA-Z0-9_$]*)\s*\()"));
    static const QRegularExpression arrow(
        QStringLiteral(R"(\b(const|let|var)\s+([a-zA-Z_$][a-zA-Z0-9_$]*)\s*=\s*\([^)]*\)\s*=>)"));
    static const QRegularExpression functionValue(
        QStringLiteral(R"(\b(const|let|var)\s+([a-zA-Z_$][a-zA-Z0-9_$]*)\s*=\s*function\s*\()"));
    static const QRegularExpression variable(QStringLiteral(R"(\b(const|let|var)\s+([a-zA-Z_$][a-zA-Z0-9_$]*)\s*=)"));
    auto collect = [&text](const QRegularExpression &expression, int group, QHash<QString, Range> &into,
                           const QHash<QString, Range> *skip) {
        for (auto it = expression.globalMatch(text); it.hasNext();) {
            const QRegularExpressionMatch match = it.next();
            const QString name = match.captured(group);
            if (skip && skip->contains(name))
                continue;
            into.insert(name, Range{int(match.capturedStart(group)), int(match.capturedLength(group))});
        }
    };
    collect(functionKeyword, 1, m_functions, nullptr);
    collect(arrow, 2, m_functions, nullptr);
    collect(functionValue, 2, m_functions, nullptr);
    collect(variable, 2, m_variables, &m_functions);
}

std::optional<DeclarationIndex::Word> DeclarationIndex::wordAt(const QString &text, int index)
{
    if (index < 0 || index >= text.size() || !isIdentifierUnit(text.at(index)))
        return std::nullopt;
    int start = index;
    int end = index + 1;
    while (start > 0 && isIdentifierUnit(text.at(start - 1)))
        --start;
    while (end < text.size() && isIdentifierUnit(text.at(end)))
        ++end;
    return Word{text.mid(start, end - start), Range{start, end - start}};
}

std::optional<DeclarationIndex::Range> DeclarationIndex::declarationAt(const QString &text, int index) const
{
    const std::optional<Word> word = wordAt(text, index);
    if (!word)
        return std::nullopt;
    std::optional<Range> declaration;
    if (m_functions.contains(word->text))
        declaration = m_functions.value(word->text);
    else if (m_variables.contains(word->text))
        declaration = m_variables.value(word->text);
    // A declaration is no link to itself.
    if (!declaration || *declaration == word->range)
        return std::nullopt;
    return declaration;
}
