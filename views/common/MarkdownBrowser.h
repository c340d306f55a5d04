#pragma once

#include <QTextBrowser>

// A read-only view of Markdown rendered as the chat renders answers (tables, nested lists,
// code blocks with their "Copy" link). Its own links act here: "Copy" puts the block's code
// on the clipboard, a link to another help document asks for it to be shown, and only web
// and mail links reach the desktop. Main thread.
class MarkdownBrowser : public QTextBrowser {
    Q_OBJECT
public:
    explicit MarkdownBrowser(QWidget *parent = nullptr);

    void showMarkdown(const QString &markdown);
    // Prose in the application's font instead of the chat's fixed one (help pages); code
    // blocks stay fixed.
    void setProportionalText(bool proportional) { m_proportional = proportional; }
    // What a click on the link at this point of the viewport does; false when there is none.
    bool activateLinkAt(const QPoint &viewportPosition);

signals:
    void codeCopied(const QString &code);
    // A relative link to another document ("getstarted.md").
    void documentRequested(const QString &document);

protected:
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    bool m_proportional = false;
};
