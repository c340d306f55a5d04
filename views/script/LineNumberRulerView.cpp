#include "views/script/LineNumberRulerView.h"

#include "views/script/SourceTextEditor.h"

#include <QPainter>
#include <QTextBlock>

LineNumberRulerView::LineNumberRulerView(SourceTextEditor *editor) : QWidget(editor), m_editor(editor) {}

int LineNumberRulerView::rulerWidth() const
{
    const int digits = QString::number(std::max(1, m_editor->blockCount())).size();
    return 12 + fontMetrics().horizontalAdvance(u'9') * std::max(3, digits);
}

QSize LineNumberRulerView::sizeHint() const
{
    return QSize(rulerWidth(), 0);
}

void LineNumberRulerView::paintEvent(QPaintEvent *event)
{
    QPainter painter(this);
    painter.fillRect(event->rect(), palette().color(QPalette::Window));
    painter.setPen(palette().color(QPalette::PlaceholderText));
    QTextBlock block = m_editor->firstVisibleBlock();
    int number = block.blockNumber() + 1;
    int top = qRound(m_editor->blockBoundingGeometry(block).translated(m_editor->contentOffset()).top());
    while (block.isValid() && top <= event->rect().bottom()) {
        const int height = qRound(m_editor->blockBoundingRect(block).height());
        if (block.isVisible())
            painter.drawText(0, top, width() - 6, fontMetrics().height(), Qt::AlignRight, QString::number(number));
        block = block.next();
        top += height;
        ++number;
    }
}
