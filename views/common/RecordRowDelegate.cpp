#include "views/common/RecordRowDelegate.h"

#include "views/common/LayoutMetrics.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>
#include <algorithm>

namespace {

QFont smaller(QFont font)
{
    if (font.pointSizeF() > 0)
        font.setPointSizeF(font.pointSizeF() * 0.9);
    else if (font.pixelSize() > 0)
        font.setPixelSize(std::max(1, font.pixelSize() * 9 / 10));
    return font;
}

QFont bold(QFont font)
{
    font.setBold(true);
    return font;
}

}  // namespace

RecordRowDelegate::RecordRowDelegate(QObject *parent) : QStyledItemDelegate(parent) {}

RecordRowDelegate::Lines RecordRowDelegate::split(const QString &text)
{
    QString plain = text;
    plain.replace(QChar::LineSeparator, QLatin1Char('\n'));
    QStringList lines = plain.split(QLatin1Char('\n'));
    Lines result;
    result.name = lines.takeFirst();
    if (lines.size() >= 2)
        result.counts = lines.takeLast();
    QStringList words;
    for (const QString &line : lines)
        if (!line.trimmed().isEmpty())
            words << line.trimmed();
    result.description = words.join(QLatin1Char(' '));
    return result;
}

QSize RecordRowDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &) const
{
    const QFontMetrics name(bold(option.font));
    const QFontMetrics body(option.font);
    const QFontMetrics small(smaller(option.font));
    const int height = 2 * LayoutMetrics::rowPadding + name.height() + body.height() + small.height() + 2;
    // As wide as the list shows: the lines elide at its edge, not at a fixed width.
    int width = 160;
    if (const auto *view = qobject_cast<const QAbstractItemView *>(option.widget))
        width = std::max(width, view->viewport()->width());
    return QSize(width, height);
}

void RecordRowDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    // The model's text: the style option's has its line breaks made into separators.
    const Lines lines = split(index.data(Qt::DisplayRole).toString());
    opt.text.clear();
    const QWidget *widget = option.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &opt, painter, widget);

    const bool selected = option.state & QStyle::State_Selected;
    const QPalette &palette = option.palette;
    const QColor text = palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
    QColor muted = selected ? text : palette.color(QPalette::PlaceholderText);
    if (selected)
        muted.setAlphaF(0.8f);

    painter->save();
    const QRect area = option.rect.adjusted(LayoutMetrics::rowPadding + 2, LayoutMetrics::rowPadding,
                                            -LayoutMetrics::rowPadding - 2, -LayoutMetrics::rowPadding);
    int y = area.top();
    painter->setClipRect(option.rect);
    auto line = [&](const QFont &font, const QColor &color, const QString &content) {
        const QFontMetrics metrics(font, painter->device());
        painter->setFont(font);
        painter->setPen(color);
        painter->drawText(QPoint(area.left(), y + metrics.ascent()), metrics.elidedText(content, Qt::ElideRight, area.width()));
        y += metrics.height() + 1;
    };
    line(bold(option.font), text, lines.name);
    line(option.font, muted, lines.description);
    line(smaller(option.font), muted, lines.counts);
    // A hairline under each row that is not selected keeps the rows apart.
    if (!selected) {
        QColor rule = palette.color(QPalette::Mid);
        rule.setAlphaF(0.35f);
        painter->setPen(rule);
        painter->drawLine(option.rect.left() + LayoutMetrics::rowPadding, option.rect.bottom(),
                          option.rect.right() - LayoutMetrics::rowPadding, option.rect.bottom());
    }
    painter->restore();
}

bool RecordRowDelegate::helpEvent(QHelpEvent *event, QAbstractItemView *view, const QStyleOptionViewItem &option,
                                  const QModelIndex &index)
{
    if (event->type() != QEvent::ToolTip || !index.isValid())
        return QStyledItemDelegate::helpEvent(event, view, option, index);
    // The whole description where the row shows only its beginning.
    const Lines lines = split(index.data(Qt::DisplayRole).toString());
    const QString tip = index.data(Qt::ToolTipRole).toString();
    QToolTip::showText(event->globalPos(), tip.isEmpty() ? lines.name + QLatin1Char('\n') + lines.description : tip, view);
    return true;
}
