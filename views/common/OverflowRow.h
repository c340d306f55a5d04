#pragma once

#include <QHBoxLayout>
#include <QList>

class QAbstractButton;
class QAction;
class QMenu;
class QToolButton;

// A row of controls that never squeezes a label: the fixed controls keep their whole width,
// the stretching ones take what is left, and the foldable buttons that no longer fit move,
// from the last one back, into a "⋯" menu at the row's end. A folded button stays the same
// object, keeping its place in the tab order; the menu item clicks it, and so do its keys,
// through an action of the owner while the button is folded away.
// A layout rather than a widget, so that nothing is reparented.
class OverflowRow : public QHBoxLayout {
    Q_OBJECT

public:
    // owner: the widget the row's controls and its menu button belong to.
    explicit OverflowRow(QWidget *owner);

    // Always shown; a stretch above 0 makes it take the width left over.
    void addFixed(QWidget *widget, int stretch = 0);
    // Shown while there is room, else an item of the "⋯" menu. A button hidden when added
    // is left out altogether.
    void addFoldable(QAbstractButton *button);
    void addSpace();

    QToolButton *moreButton() const { return m_more; }
    // The buttons in the menu now, in their order in the row.
    QList<QAbstractButton *> foldedButtons() const { return m_folded; }

    QSize minimumSize() const override;
    void setGeometry(const QRect &rect) override;

private:
    struct Item {
        QWidget *widget = nullptr;
        bool foldable = false;
        bool absent = false;
        bool stretches = false;
        QAction *keys = nullptr;  // the button's shortcut while it is folded
    };
    void fold(int width);
    void fillMenu();
    int fixedWidth() const;
    int gap() const;
    static int widthOf(const QWidget *widget, bool stretches);

    QWidget *m_owner;
    QToolButton *m_more;
    QMenu *m_menu;
    QList<Item> m_items;
    QList<QAbstractButton *> m_folded;
};
