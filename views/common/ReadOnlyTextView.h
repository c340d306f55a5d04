#pragma once

#include <QWidget>

class MarkdownBrowser;
class QLabel;

// Shows a Markdown document shipped in the resources' help folder, read-only, under a title,
// rendered as the chat renders answers. A link to another help page opens it in the same
// window. A missing file shows "Unable to Load File" and where it was looked for. Main thread.
class ReadOnlyTextView : public QWidget {
    Q_OBJECT
public:
    ReadOnlyTextView(const QString &filename, const QString &title, QWidget *parent = nullptr);

    // Opens the document in a window of its own, or raises the one already showing it.
    static ReadOnlyTextView *showDocument(const QString &filename, const QString &title);

    QString filename() const { return m_filename; }
    bool loaded() const { return m_loaded; }
    QString text() const;
    MarkdownBrowser *browser() const { return m_browser; }
    // Shows another document of the help folder in this window.
    void load(const QString &filename);

private:
    QString m_filename;
    bool m_loaded = false;
    QLabel *m_heading = nullptr;
    MarkdownBrowser *m_browser = nullptr;
};
