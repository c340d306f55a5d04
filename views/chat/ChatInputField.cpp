#include "views/chat/ChatInputField.h"

#include "chat/appearance/AppearanceSettings.h"

#include <QKeyEvent>
#include <QMimeData>

ChatInputField::ChatInputField(QWidget *parent) : QPlainTextEdit(parent)
{
    setObjectName(QStringLiteral("chatInput"));
    setPlaceholderText(QStringLiteral("Ask the model… (Return sends, Shift+Return for a new line)"));
    setTabChangesFocus(true);
}

void ChatInputField::applyAppearance(const AppearanceSettings &appearance)
{
    setFont(appearance.inputFont());
    QPalette colors = palette();
    colors.setColor(QPalette::Text, appearance.color(AppearanceSettings::InputText));
    colors.setColor(QPalette::Base, appearance.color(AppearanceSettings::InputBackground));
    setPalette(colors);
}

void ChatInputField::keyPressEvent(QKeyEvent *event)
{
    const bool returnKey = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (returnKey && !(event->modifiers() & Qt::ShiftModifier) && canSend && canSend()) {
        if (onSend)
            onSend();
        return;
    }
    QPlainTextEdit::keyPressEvent(event);
}

void ChatInputField::dragEnterEvent(QDragEnterEvent *event)
{
    if (event->mimeData()->hasUrls() || event->mimeData()->hasText())
        event->acceptProposedAction();
}

void ChatInputField::dragMoveEvent(QDragMoveEvent *event)
{
    event->acceptProposedAction();
}

void ChatInputField::dropEvent(QDropEvent *event)
{
    // Only the first item counts; a file arrives as its path.
    const QMimeData *data = event->mimeData();
    if (data->hasUrls() && !data->urls().isEmpty() && data->urls().constFirst().isLocalFile()) {
        const QString path = data->urls().constFirst().toLocalFile();
        emit dropped(path, path, event->position().toPoint());
    } else if (data->hasText()) {
        emit dropped(data->text(), std::nullopt, event->position().toPoint());
    } else {
        return;
    }
    event->acceptProposedAction();
}
