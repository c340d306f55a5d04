#pragma once

#include "base/AbstractController.h"

#include <QList>
#include <QPointer>
#include <QTextDocument>

// Search and replace over the script editor's document: every match found, one current,
// moves that wrap, replace one and replace all. Ranges are positions of the document,
// which count UTF-16 units as a QString does. The view draws the marks from matches() and
// currentMatchIndex(), and follows selectionRequested(). Main thread only.
class SearchReplaceManager : public AbstractController {
    Q_OBJECT

public:
    struct Range {
        int location = 0;
        int length = 0;
        bool operator==(const Range &) const = default;
    };

    explicit SearchReplaceManager(QObject *parent = nullptr);

    void setDocument(QTextDocument *document) { m_document = document; }
    QTextDocument *document() const { return m_document; }

    bool isVisible() const { return m_isVisible; }
    void show();
    void hide();
    QString searchText() const { return m_searchText; }
    // A new non-empty text searches again; an empty one drops the matches.
    void setSearchText(const QString &text);
    QString replaceText() const { return m_replaceText; }
    void setReplaceText(const QString &text) { m_replaceText = text; }
    bool caseSensitive() const { return m_caseSensitive; }
    void setCaseSensitive(bool on);
    bool exactMatch() const { return m_exactMatch; }
    void setExactMatch(bool on);
    bool wrapAround() const { return m_wrapAround; }
    void setWrapAround(bool on) { m_wrapAround = on; }

    const QList<Range> &matches() const { return m_matches; }
    int totalMatches() const { return int(m_matches.size()); }
    int currentMatchIndex() const { return m_current; }
    // "2 of 5", or nothing without matches.
    QString countText() const;

    void performSearch();
    void findNext();
    void findPrevious();
    void replaceCurrent();
    void replaceAll();
    // An edit made the document dirty: the ranges are stale.
    void clearMatches();

signals:
    // The view selects the range and scrolls it into view.
    void selectionRequested(int location, int length);

private:
    void moveTo(int index);
    bool fits(const Range &range) const;

    QPointer<QTextDocument> m_document;
    bool m_isVisible = false;
    QString m_searchText;
    QString m_replaceText;
    bool m_caseSensitive = false;
    bool m_exactMatch = false;
    bool m_wrapAround = true;
    QList<Range> m_matches;
    int m_current = 0;
};
