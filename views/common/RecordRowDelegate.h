#pragma once

#include <QStyledItemDelegate>

// A row of the tools, resources and prompts lists: the name, a muted one-line description
// that elides at its end (the whole of it in the tooltip), and the small counts line, with
// room around them and a hairline between rows. The row's text holds the three lines.
class RecordRowDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    explicit RecordRowDelegate(QObject *parent = nullptr);

    struct Lines {
        QString name, description, counts;
    };
    // "name\ndescription\ncounts"; a description of several lines reads as one.
    static Lines split(const QString &text);

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    bool helpEvent(QHelpEvent *event, QAbstractItemView *view, const QStyleOptionViewItem &option,
                   const QModelIndex &index) override;
};
