#include "views/common/PanePosition.h"

#include "app/SettingsManager.h"

#include <QEvent>
#include <QSplitter>

#include <algorithm>

PanePosition *PanePosition::keep(QSplitter *splitter, UserDefaultsKeys key)
{
    return new PanePosition(splitter, key);
}

PanePosition::PanePosition(QSplitter *splitter, UserDefaultsKeys key)
    : QObject(splitter), m_splitter(splitter), m_settings(new SettingsManager(key, this))
{
    // The position is put back once the splitter and both panes are on screen; a pane hidden
    // at first (a toggled-off log) is waited for.
    splitter->installEventFilter(this);
    for (int i = 0; i < std::min(2, splitter->count()); ++i)
        splitter->widget(i)->installEventFilter(this);
    connect(splitter, &QSplitter::splitterMoved, this, [this](int position) {
        // Only the user's moves count: the first layout must not overwrite what is stored.
        if (m_applied)
            m_settings->saveSplitter(position);
    });
}

bool PanePosition::eventFilter(QObject *watched, QEvent *event)
{
    if (!m_applied && !m_queued && (event->type() == QEvent::Show || event->type() == QEvent::Resize) &&
        (watched == m_splitter || (m_splitter->count() >= 2 && (watched == m_splitter->widget(0) || watched == m_splitter->widget(1))))) {
        // After the splitter has laid out the pane that just appeared, or it would undo this.
        m_queued = true;
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_queued = false;
                apply();
            },
            Qt::QueuedConnection);
    }
    return QObject::eventFilter(watched, event);
}

void PanePosition::apply()
{
    if (m_splitter->count() < 2 || !m_splitter->isVisible() || m_splitter->widget(0)->isHidden() ||
        m_splitter->widget(1)->isHidden())
        return;
    const int total = (m_splitter->orientation() == Qt::Horizontal ? m_splitter->width() : m_splitter->height()) -
                      m_splitter->handleWidth();
    if (total <= 0)
        return;
    const QWidget *first = m_splitter->widget(0);
    const QWidget *second = m_splitter->widget(1);
    const bool horizontal = m_splitter->orientation() == Qt::Horizontal;
    const int firstMinimum = horizontal ? first->minimumSizeHint().width() : first->minimumSizeHint().height();
    const int secondMinimum = horizontal ? second->minimumSizeHint().width() : second->minimumSizeHint().height();
    // A stored position that no longer fits (a smaller window) leaves the second pane its minimum.
    const int position = std::clamp(int(m_settings->splitterPosition()), std::max(0, firstMinimum),
                                    std::max(std::max(0, firstMinimum), total - std::max(0, secondMinimum)));
    m_splitter->setSizes({position, total - position});
    m_applied = true;
}
