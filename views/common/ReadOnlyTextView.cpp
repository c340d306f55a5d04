#include "views/common/ReadOnlyTextView.h"

#include "base/AppPaths.h"
#include "views/common/MarkdownBrowser.h"

#include <QShortcut>
#include <QTextCursor>
#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QVBoxLayout>

ReadOnlyTextView::ReadOnlyTextView(const QString &filename, const QString &title, QWidget *parent)
    : QWidget(parent), m_filename(filename)
{
    setWindowTitle(title);
    // A secondary window closes with Escape, as a dialog does.
    connect(new QShortcut(QKeySequence(Qt::Key_Escape), this), &QShortcut::activated, this, &QWidget::close);
    resize(640, 720);
    auto *layout = new QVBoxLayout(this);
    m_heading = new QLabel(QStringLiteral("<b>%1</b>").arg(title.toHtmlEscaped()), this);
    layout->addWidget(m_heading);
    m_browser = new MarkdownBrowser(this);
    m_browser->setProportionalText(true);
    layout->addWidget(m_browser, 1);
    // A link to another help page opens it here, as a browser would.
    connect(m_browser, &MarkdownBrowser::documentRequested, this, &ReadOnlyTextView::load);
    load(filename);
}

void ReadOnlyTextView::load(const QString &filename)
{
    QFile file(AppPaths::resourcesDir() + QStringLiteral("/help/") + filename);
    if (!file.open(QIODevice::ReadOnly)) {
        m_browser->setHtml(QStringLiteral("<h2>Unable to Load File</h2><p>%1</p>")
                               .arg((QStringLiteral("File '") + filename + QStringLiteral("' not found in app bundle"))
                                        .toHtmlEscaped()));
        m_loaded = false;
        return;
    }
    m_filename = filename;
    m_browser->showMarkdown(QString::fromUtf8(file.readAll()));
    m_browser->moveCursor(QTextCursor::Start);  // another page is read from its top
    m_loaded = true;
}

QString ReadOnlyTextView::text() const { return m_browser->toPlainText(); }

ReadOnlyTextView *ReadOnlyTextView::showDocument(const QString &filename, const QString &title)
{
    for (QWidget *w : QApplication::topLevelWidgets()) {
        auto *view = qobject_cast<ReadOnlyTextView *>(w);
        if (view && view->filename() == filename) {
            view->show();
            view->raise();
            view->activateWindow();
            return view;
        }
    }
    auto *view = new ReadOnlyTextView(filename, title);
    view->setAttribute(Qt::WA_DeleteOnClose);
    view->show();
    return view;
}
