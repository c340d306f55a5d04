#include "workbench/SearchReplaceManager.h"

#include <QTextCursor>

namespace {

bool isWordUnit(QChar c)
{
    return c.isLetterOrNumber() || c == u'_';
}

}  // namespace

SearchReplaceManager::SearchReplaceManager(QObject *parent) : AbstractController(parent) {}

void SearchReplaceManager::show()
{
    m_isVisible = true;
    notifyChange();
}

void SearchReplaceManager::hide()
{
    m_isVisible = false;
    notifyChange();
}

void SearchReplaceManager::setSearchText(const QString &text)
{
    if (m_searchText == text)
        return;
    m_searchText = text;
    if (text.isEmpty())
        clearMatches();
    else
        performSearch();
}

void SearchReplaceManager::setCaseSensitive(bool on)
{
    if (m_caseSensitive == on)
        return;
    m_caseSensitive = on;
    if (!m_searchText.isEmpty())
        performSearch();
}

void SearchReplaceManager::setExactMatch(bool on)
{
    if (m_exactMatch == on)
        return;
    m_exactMatch = on;
    if (!m_searchText.isEmpty())
        performSearch();
}

QString SearchReplaceManager::countText() const
{
    if (m_matches.isEmpty())
        return {};
    return QString::asprintf("%lld of %lld", qlonglong(m_current + 1), qlonglong(m_matches.size()));
}

void SearchReplaceManager::clearMatches()
{
    m_matches.clear();
    m_current = 0;
    notifyChange();
}

void SearchReplaceManager::performSearch()
{
    m_matches.clear();
    m_current = 0;
    if (!m_document || m_searchText.isEmpty()) {
        notifyChange();
        return;
    }
    const QString text = m_document->toPlainText();
    const Qt::CaseSensitivity cs = m_caseSensitive ? Qt::CaseSensitive : Qt::CaseInsensitive;
    qsizetype from = 0;
    while (from <= text.size()) {
        const qsizetype at = text.indexOf(m_searchText, from, cs);
        if (at < 0)
            break;
        const qsizetype end = at + m_searchText.size();
        // Whole words: no letter, digit or "_" right before or after; the scan goes on behind
        // a found range either way, so matches never overlap.
        const bool passes = !m_exactMatch || ((at == 0 || !isWordUnit(text.at(at - 1))) &&
                                              (end >= text.size() || !isWordUnit(text.at(end))));
        if (passes)
            m_matches.append(Range{int(at), int(m_searchText.size())});
        from = end;
    }
    if (!m_matches.isEmpty())
        moveTo(0);
    notifyChange();
}

void SearchReplaceManager::moveTo(int index)
{
    m_current = index;
    const Range &range = m_matches.at(index);
    emit selectionRequested(range.location, range.length);
    notifyChange();
}

void SearchReplaceManager::findNext()
{
    if (m_matches.isEmpty())
        return;
    if (m_current + 1 < m_matches.size())
        moveTo(m_current + 1);
    else if (m_wrapAround)
        moveTo(0);
}

void SearchReplaceManager::findPrevious()
{
    if (m_matches.isEmpty())
        return;
    if (m_current - 1 >= 0)
        moveTo(m_current - 1);
    else if (m_wrapAround)
        moveTo(int(m_matches.size()) - 1);
}

bool SearchReplaceManager::fits(const Range &range) const
{
    // A range left from before an edit may no longer lie on the text it found.
    if (!m_document)
        return false;
    const QString text = m_document->toPlainText();
    return range.location >= 0 && range.location + range.length <= text.size() &&
           text.mid(range.location, range.length).compare(m_searchText, m_caseSensitive ? Qt::CaseSensitive
                                                                                         : Qt::CaseInsensitive) == 0;
}

void SearchReplaceManager::replaceCurrent()
{
    if (m_current < 0 || m_current >= m_matches.size() || !fits(m_matches.at(m_current)))
        return;
    const Range range = m_matches.at(m_current);
    QTextCursor cursor(m_document);
    cursor.setPosition(range.location);
    cursor.setPosition(range.location + range.length, QTextCursor::KeepAnchor);
    cursor.insertText(m_replaceText);
    performSearch();
}

void SearchReplaceManager::replaceAll()
{
    if (m_matches.isEmpty() || !m_document)
        return;
    // One pass over one copy of the text: the matches that still lie on what they found are
    // replaced while the new text is built, and the document takes it in one edit (one step
    // to undo). Editing match by match re-laid the document each time.
    const QString text = m_document->toPlainText();
    QList<Range> ranges = m_matches;
    std::sort(ranges.begin(), ranges.end(), [](const Range &a, const Range &b) { return a.location < b.location; });
    const Qt::CaseSensitivity sensitivity = m_caseSensitive ? Qt::CaseSensitive : Qt::CaseInsensitive;
    QString replaced;
    replaced.reserve(text.size());
    qsizetype from = 0;
    qsizetype changed = 0;
    for (const Range &range : ranges) {
        if (range.location < from || range.location + range.length > text.size() ||
            QStringView(text).mid(range.location, range.length).compare(m_searchText, sensitivity) != 0)
            continue;
        replaced += QStringView(text).mid(from, range.location - from);
        replaced += m_replaceText;
        from = range.location + range.length;
        ++changed;
    }
    if (changed > 0) {
        replaced += QStringView(text).mid(from);
        QTextCursor cursor(m_document);
        cursor.beginEditBlock();
        cursor.select(QTextCursor::Document);
        cursor.insertText(replaced);
        cursor.endEditBlock();
    }
    m_matches.clear();
    m_current = 0;
    notifyChange();
}
