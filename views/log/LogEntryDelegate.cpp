#include "views/log/LogEntryDelegate.h"

#include "diagnostics/MCPLogMessageType.h"
#include "views/log/LogListModel.h"

#include <algorithm>
#include <QAbstractScrollArea>
#include <QApplication>
#include <QFontDatabase>
#include <QPainter>
#include <QTextLayout>

namespace {
constexpr int marginX = 6;
constexpr int marginY = 3;
constexpr int gap = 10;
constexpr int disclosureWidth = 12;
}  // namespace

LogEntryDelegate::LogEntryDelegate(QObject *parent) : QStyledItemDelegate(parent)
{
    m_font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    const QFontMetrics metrics(m_font);
    m_lineHeight = metrics.height();
    m_timeWidth = metrics.horizontalAdvance(QStringLiteral("00:00:00.000"));
    m_labelWidth = metrics.horizontalAdvance(QStringLiteral("[W]"));
    m_codeWidth = metrics.horizontalAdvance(QStringLiteral("-00000"));
}

QColor LogEntryDelegate::labelColor(int type, const QPalette &palette)
{
    const bool dark = palette.color(QPalette::Base).lightness() < 128;
    switch (static_cast<MCPLogMessageType>(type)) {
    case MCPLogMessageType::Critical:
    case MCPLogMessageType::Error:
        return dark ? QColor(0xff, 0x6b, 0x6b) : QColor(0xc6, 0x28, 0x28);
    case MCPLogMessageType::Warning:
        return dark ? QColor(0xf5, 0xb0, 0x41) : QColor(0xb2, 0x6a, 0x00);
    case MCPLogMessageType::Info:
        return dark ? QColor(0x6c, 0xa6, 0xff) : QColor(0x2f, 0x6b, 0xd8);
    case MCPLogMessageType::Debug:
        return palette.color(QPalette::PlaceholderText);
    }
    return dark ? QColor(0xc3, 0x8e, 0xff) : QColor(0x7b, 0x3f, 0xc4);
}

LogEntryDelegate::Columns LogEntryDelegate::columns(const QRect &rowRect) const
{
    Columns c;
    int x = rowRect.left() + marginX;
    const int top = rowRect.top() + marginY;
    c.disclosure = QRect(x, top, disclosureWidth, m_lineHeight);
    x += disclosureWidth + 4;
    c.time = QRect(x, top, m_timeWidth, m_lineHeight);
    x += m_timeWidth + gap;
    c.label = QRect(x, top, m_labelWidth, m_lineHeight);
    x += m_labelWidth + gap;
    c.code = QRect(x, top, m_codeWidth, m_lineHeight);
    x += m_codeWidth + gap;
    c.text = QRect(x, top, std::max(40, rowRect.right() - marginX - x), rowRect.height() - 2 * marginY);
    return c;
}

QRect LogEntryDelegate::disclosureRect(const QRect &rowRect) const { return columns(rowRect).disclosure; }

QString LogEntryDelegate::textFor(const QModelIndex &index, bool expanded) const
{
    if (expanded)
        return index.data(LogListModel::MessageRole).toString();
    return summaryLine(index.data(Qt::DisplayRole).toString());
}

QString LogEntryDelegate::summaryLine(const QString &message)
{
    // A pretty-printed JSON result opens with a line of brackets alone; the first line that
    // says something stands for the entry.
    static const QString punctuation = QStringLiteral("{}[](),;");
    const QStringList lines = message.split(QLatin1Char('\n'));
    for (qsizetype i = 0; i < lines.size(); ++i) {
        const QString trimmed = lines[i].trimmed();
        if (std::any_of(trimmed.begin(), trimmed.end(), [](QChar c) { return !punctuation.contains(c); }))
            return i == 0 ? lines[i] : trimmed;
    }
    return lines.first();
}

QSize LogEntryDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const bool expanded = index.data(LogListModel::ExpandedRole).toBool();
    if (!expanded)
        return QSize(200, m_lineHeight + 2 * marginY);
    // Rows fill the list's width; the option's own rectangle has none yet at this point.
    int width = option.rect.width();
    if (const auto *area = qobject_cast<const QAbstractScrollArea *>(option.widget))
        width = area->viewport()->width();
    const QRect row(0, 0, std::max(200, width), m_lineHeight);
    const Columns c = columns(row);
    const QFontMetrics metrics(m_font);
    const QRect bounds = metrics.boundingRect(QRect(0, 0, c.text.width(), 1 << 20),
                                              Qt::TextWrapAnywhere | Qt::AlignLeft | Qt::AlignTop,
                                              textFor(index, true));
    return QSize(200, std::max(m_lineHeight, bounds.height()) + 2 * marginY);
}

void LogEntryDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    opt.text.clear();
    const QWidget *widget = option.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &opt, painter, widget);

    const bool selected = option.state & QStyle::State_Selected;
    const QPalette &palette = option.palette;
    const QColor text = palette.color(selected ? QPalette::HighlightedText : QPalette::Text);
    const QColor faint = selected ? text : palette.color(QPalette::PlaceholderText);
    const bool expanded = index.data(LogListModel::ExpandedRole).toBool();
    const Columns c = columns(option.rect);

    painter->save();
    painter->setFont(m_font);
    painter->setClipRect(option.rect);

    const QString firstLine = textFor(index, false);
    const bool elided = QFontMetrics(m_font).horizontalAdvance(firstLine) > c.text.width();
    if (index.data(LogListModel::ExpandableRole).toBool() || elided || expanded) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(faint);
        const QPointF center = QRectF(c.disclosure).center();
        QPolygonF mark;
        if (expanded)
            mark << center + QPointF(-4, -2) << center + QPointF(4, -2) << center + QPointF(0, 3);
        else
            mark << center + QPointF(-2, -4) << center + QPointF(3, 0) << center + QPointF(-2, 4);
        painter->setRenderHint(QPainter::Antialiasing);
        painter->drawPolygon(mark);
    }

    painter->setPen(faint);
    painter->drawText(c.time, Qt::AlignLeft | Qt::AlignTop, index.data(LogListModel::TimeRole).toString());
    painter->setPen(selected ? text : labelColor(index.data(LogListModel::TypeRole).toInt(), palette));
    painter->drawText(c.label, Qt::AlignLeft | Qt::AlignTop, index.data(LogListModel::LabelRole).toString());
    const int code = index.data(LogListModel::CodeRole).toInt();
    if (code >= 1) {
        painter->setPen(faint);
        painter->drawText(c.code, Qt::AlignRight | Qt::AlignTop, QString::number(code));
    }
    painter->setPen(text);
    if (expanded) {
        painter->drawText(c.text, Qt::TextWrapAnywhere | Qt::AlignLeft | Qt::AlignTop, textFor(index, true));
    } else {
        const QString shown = QFontMetrics(m_font).elidedText(firstLine, Qt::ElideRight, c.text.width());
        painter->drawText(c.text, Qt::AlignLeft | Qt::AlignTop | Qt::TextSingleLine, shown);
    }
    painter->restore();
}
