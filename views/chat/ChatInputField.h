#pragma once

#include <QPlainTextEdit>

class AppearanceSettings;
#include <functional>

// The chat's input: Return sends when sending is possible and is consumed; Shift+Return, or
// Return while an answer streams, makes a new line. Files and text dropped on it go to
// `dropped` with the drop point, for the drop menu.
class ChatInputField : public QPlainTextEdit {
    Q_OBJECT

public:
    explicit ChatInputField(QWidget *parent = nullptr);

    // The input font, its size and the input's text and background colours.
    void applyAppearance(const AppearanceSettings &appearance);

    std::function<bool()> canSend;
    std::function<void()> onSend;

signals:
    void dropped(const QString &text, const std::optional<QString> &path, const QPoint &at);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
};
