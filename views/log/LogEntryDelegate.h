#pragma once

#include <QFont>
#include <QStyledItemDelegate>

// Paints one log row: the disclosure mark of an entry with more to show, the time, the
// level label in its colour, the code when there is one, and the text: its first line
// when collapsed, the whole message wrapped when expanded.
class LogEntryDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    explicit LogEntryDelegate(QObject *parent = nullptr);

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;

    // Where the disclosure mark sits in a row's rectangle; a click there toggles the row.
    QRect disclosureRect(const QRect &rowRect) const;
    QFont rowFont() const { return m_font; }

    // Tells the view that a row's height may have changed.
    void rowSizeChanged(const QModelIndex &index) { emit sizeHintChanged(index); }

    static QColor labelColor(int type, const QPalette &palette);
    // The one line a folded entry shows: its first line that is more than brackets.
    static QString summaryLine(const QString &message);

private:
    struct Columns {
        QRect disclosure, time, label, code, text;
    };
    Columns columns(const QRect &rowRect) const;
    QString textFor(const QModelIndex &index, bool expanded) const;

    QFont m_font;
    int m_lineHeight = 0;
    int m_timeWidth = 0;
    int m_labelWidth = 0;
    int m_codeWidth = 0;
};
