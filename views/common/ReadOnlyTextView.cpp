#include "views/common/ReadOnlyTextView.h"

#include "base/AppPaths.h"
#include "chat/markdown/MarkdownSection.h"

#include <QApplication>
#include <QDesktopServices>
#include <QFile>
#include <QLabel>
#include <QPointer>
#include <QTextBrowser>
#include <QVBoxLayout>

namespace {

QString sectionsHtml(const QList<MarkdownSection> &sections)
{
    using T = MarkdownSection::Type;
    QString html;
    bool inBullets = false;
    for (const MarkdownSection &s : sections) {
        if (inBullets && s.type != T::BulletPoint) {
            html += QStringLiteral("</ul>");
            inBullets = false;
        }
        switch (s.type) {
        case T::Heading1: case T::Heading2: case T::Heading3: case T::Heading4: case T::Heading5: case T::Heading6: {
            const int level = int(s.type) - int(T::Heading1) + 1;
            html += QStringLiteral("<h%1>%2</h%1>").arg(level).arg(MarkdownSection::inlineHtml(s.content));
            break;
        }
        case T::Paragraph: html += QStringLiteral("<p>%1</p>").arg(MarkdownSection::inlineHtml(s.content)); break;
        case T::Code: html += QStringLiteral("<pre>%1</pre>").arg(s.content.toHtmlEscaped()); break;
        case T::BulletPoint:
            if (!inBullets)
                html += QStringLiteral("<ul>");
            inBullets = true;
            html += QStringLiteral("<li>%1</li>").arg(MarkdownSection::inlineHtml(s.content));
            break;
        case T::NumberedItem:
            html += QStringLiteral("<p>%1. %2</p>").arg(s.number.value_or(0)).arg(MarkdownSection::inlineHtml(s.content));
            break;
        }
    }
    if (inBullets)
        html += QStringLiteral("</ul>");
    return html;
}

} // namespace

ReadOnlyTextView::ReadOnlyTextView(const QString &filename, const QString &title, QWidget *parent)
    : QWidget(parent), m_filename(filename)
{
    setWindowTitle(title);
    resize(640, 720);
    auto *layout = new QVBoxLayout(this);
    auto *heading = new QLabel(QStringLiteral("<b>%1</b>").arg(title.toHtmlEscaped()), this);
    layout->addWidget(heading);
    m_browser = new QTextBrowser(this);
    m_browser->setOpenExternalLinks(true);
    layout->addWidget(m_browser, 1);

    QFile file(AppPaths::resourcesDir() + QStringLiteral("/help/") + filename);
    if (!file.open(QIODevice::ReadOnly)) {
        m_browser->setHtml(QStringLiteral("<h2>Unable to Load File</h2><p>%1</p>")
                               .arg((QStringLiteral("File '") + filename + QStringLiteral("' not found in app bundle"))
                                        .toHtmlEscaped()));
        return;
    }
    m_browser->setHtml(sectionsHtml(MarkdownSection::parse(QString::fromUtf8(file.readAll()))));
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
