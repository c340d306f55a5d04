#include "views/common/OverflowRow.h"

#include <QAbstractButton>
#include <QAction>
#include <QMenu>
#include <QStyle>
#include <QToolButton>
#include <algorithm>

OverflowRow::OverflowRow(QWidget *owner) : m_owner(owner)
{
    m_menu = new QMenu(owner);
    m_more = new QToolButton(owner);
    m_more->setObjectName(QStringLiteral("moreCommands"));
    m_more->setText(QStringLiteral("⋯"));
    m_more->setToolTip(QStringLiteral("More commands"));
    m_more->setPopupMode(QToolButton::InstantPopup);
    m_more->setAutoRaise(true);
    // The "⋯" says menu already; the style's arrow beside it would say it twice.
    m_more->setStyleSheet(QStringLiteral("QToolButton::menu-indicator { image: none; width: 0px; }"));
    m_more->setMenu(m_menu);
    m_more->setVisible(false);
    QHBoxLayout::addWidget(m_more);
    connect(m_menu, &QMenu::aboutToShow, this, &OverflowRow::fillMenu);
}

void OverflowRow::addFixed(QWidget *widget, int stretch)
{
    insertWidget(indexOf(m_more), widget, stretch);
    if (stretch == 0)
        widget->setSizePolicy(QSizePolicy::Fixed, widget->sizePolicy().verticalPolicy());
    m_items.append({widget, false, false, stretch > 0});
}

void OverflowRow::addFoldable(QAbstractButton *button)
{
    const bool absent = button->isHidden() && button->testAttribute(Qt::WA_WState_ExplicitShowHide);
    insertWidget(indexOf(m_more), button);
    button->setSizePolicy(QSizePolicy::Fixed, button->sizePolicy().verticalPolicy());
    QAction *keys = nullptr;
    if (!button->shortcut().isEmpty()) {
        // A hidden button hears no keys; while it is folded this action does it for it.
        keys = new QAction(m_owner);
        keys->setShortcut(button->shortcut());
        keys->setShortcutContext(Qt::WidgetWithChildrenShortcut);
        keys->setEnabled(false);
        m_owner->addAction(keys);
        connect(keys, &QAction::triggered, button, &QAbstractButton::click);
    }
    m_items.append({button, true, absent, false, keys});
}

void OverflowRow::addSpace()
{
    insertStretch(indexOf(m_more), 1);
}

int OverflowRow::gap() const
{
    // Without a spacing of its own the style spaces each pair; its horizontal figure, and a
    // pixel to spare, keep the estimate on the safe side.
    int space = spacing();
    if (space < 0 && parentWidget())
        space = parentWidget()->style()->pixelMetric(QStyle::PM_LayoutHorizontalSpacing);
    return std::max(space, 6) + 1;
}

int OverflowRow::widthOf(const QWidget *widget, bool stretches)
{
    // What the layout will give it at least: its hint (its minimum when it stretches), and
    // never less than a minimum width set on it.
    const int hinted = stretches ? widget->minimumSizeHint().width() : widget->sizeHint().width();
    return std::max(hinted, widget->minimumWidth());
}

int OverflowRow::fixedWidth() const
{
    int width = 0;
    for (const Item &item : m_items) {
        if (item.foldable || item.widget->isHidden())
            continue;
        width += widthOf(item.widget, item.stretches) + gap();
    }
    const QMargins margins = contentsMargins();
    return width + margins.left() + margins.right();
}

QSize OverflowRow::minimumSize() const
{
    // Room for the fixed controls and the menu button: every foldable one may fold.
    QSize size = QHBoxLayout::minimumSize();
    size.setWidth(fixedWidth() + m_more->sizeHint().width());
    return size;
}

void OverflowRow::setGeometry(const QRect &rect)
{
    fold(rect.width());
    QHBoxLayout::setGeometry(rect);
}

void OverflowRow::fold(int width)
{
    QList<const Item *> foldable;
    int wanted = 0;
    for (const Item &item : m_items) {
        if (item.foldable && !item.absent) {
            foldable.append(&item);
            wanted += widthOf(item.widget, false) + gap();
        }
    }
    int room = width - fixedWidth();
    const bool allFit = wanted <= room;
    if (!allFit)
        room -= m_more->sizeHint().width();
    QList<QAbstractButton *> folded;
    for (const Item *item : foldable) {
        const int need = widthOf(item->widget, false) + gap();
        // Folded from the end: once one does not fit, the ones after it go too.
        const bool fits = allFit || (folded.isEmpty() && need <= room);
        if (fits)
            room -= need;
        else
            folded.append(static_cast<QAbstractButton *>(item->widget));
        if (item->widget->isHidden() == fits)
            item->widget->setVisible(fits);
        if (item->keys)
            item->keys->setEnabled(!fits);
    }
    if (m_more->isHidden() == !folded.isEmpty())
        m_more->setVisible(!folded.isEmpty());
    m_folded = folded;
}

void OverflowRow::fillMenu()
{
    m_menu->clear();
    for (QAbstractButton *button : m_folded) {
        QAction *action = m_menu->addAction(button->icon(), button->text());
        action->setEnabled(button->isEnabled());
        action->setToolTip(button->toolTip());
        connect(action, &QAction::triggered, button, &QAbstractButton::click);
    }
}
