#include "views/log/LogEntryWindow.h"

#include "app/log/LogViewController.h"
#include "views/common/FileDialogs.h"
#include "views/log/LogEntryDelegate.h"

#include <QApplication>
#include <QClipboard>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QShortcut>
#include <QTextBlock>
#include <QTextDocument>
#include <QVBoxLayout>

LogEntryWindow::LogEntryWindow(const LogEntry &entry, LogViewController *controller, QWidget *parent)
    : QWidget(parent, Qt::Window), m_entry(entry), m_controller(controller)
{
    setObjectName(QStringLiteral("logEntryWindow"));
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QStringLiteral("Log Entry"));
    resize(720, 480);

    auto *time = new QLabel(entry.formattedTimestamp, this);
    auto *label = new QLabel(entry.label(), this);
    QPalette labelPalette = label->palette();
    labelPalette.setColor(QPalette::WindowText, LogEntryDelegate::labelColor(int(entry.type), palette()));
    label->setPalette(labelPalette);
    const QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    time->setFont(fixed);
    label->setFont(fixed);
    auto *code = new QLabel(entry.code >= 1 ? QStringLiteral("Code %1").arg(entry.code) : QString(), this);
    code->setEnabled(false);

    m_search = new QLineEdit(this);
    m_search->setObjectName(QStringLiteral("entrySearchField"));
    m_search->setPlaceholderText(QStringLiteral("Search..."));
    m_search->setClearButtonEnabled(true);
    m_previous = new QPushButton(QStringLiteral("Previous"), this);
    m_next = new QPushButton(QStringLiteral("Next"), this);
    m_count = new QLabel(this);
    m_count->setObjectName(QStringLiteral("entryMatchCount"));
    m_count->setMinimumWidth(QFontMetrics(m_count->font()).horizontalAdvance(QStringLiteral("000 of 000")));

    auto *header = new QHBoxLayout;
    header->setSpacing(10);
    header->addWidget(time);
    header->addWidget(label);
    header->addWidget(code);
    header->addStretch();
    header->addWidget(m_search, 1);
    header->addWidget(m_count);
    header->addWidget(m_previous);
    header->addWidget(m_next);

    m_text = new QPlainTextEdit(this);
    m_text->setObjectName(QStringLiteral("entryText"));
    m_text->setReadOnly(true);
    m_text->setFont(fixed);
    m_text->setPlainText(entry.message);

    auto *copy = new QPushButton(QStringLiteral("Copy"), this);
    auto *save = new QPushButton(QStringLiteral("Save..."), this);
    auto *close = new QPushButton(QStringLiteral("Close"), this);
    auto *footer = new QHBoxLayout;
    footer->addWidget(copy);
    footer->addWidget(save);
    footer->addStretch();
    footer->addWidget(close);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->addLayout(header);
    layout->addWidget(m_text, 1);
    layout->addLayout(footer);

    connect(m_search, &QLineEdit::textChanged, this, &LogEntryWindow::search);
    connect(m_search, &QLineEdit::returnPressed, this, &LogEntryWindow::findNext);
    connect(m_next, &QPushButton::clicked, this, &LogEntryWindow::findNext);
    connect(m_previous, &QPushButton::clicked, this, &LogEntryWindow::findPrevious);
    connect(copy, &QPushButton::clicked, this, &LogEntryWindow::copyMessage);
    connect(save, &QPushButton::clicked, this, &LogEntryWindow::saveMessage);
    connect(close, &QPushButton::clicked, this, &QWidget::close);
    auto *find = new QShortcut(QKeySequence::Find, this);
    connect(find, &QShortcut::activated, this, [this] { m_search->setFocus(); m_search->selectAll(); });
    auto *escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    connect(escape, &QShortcut::activated, this, &QWidget::close);
    search(QString());
}

QString LogEntryWindow::matchCountText() const
{
    if (m_search->text().isEmpty())
        return QString();
    const int position = m_matches.isEmpty() ? 0 : m_current + 1;
    return QString::number(position) + QStringLiteral(" of ") + QString::number(m_matches.size());
}

void LogEntryWindow::search(const QString &text)
{
    m_matches.clear();
    m_current = -1;
    if (!text.isEmpty()) {
        QTextDocument *document = m_text->document();
        QTextCursor cursor(document);
        while (true) {
            cursor = document->find(text, cursor);
            if (cursor.isNull())
                break;
            m_matches.append(cursor);
        }
        if (!m_matches.isEmpty())
            m_current = 0;
    }
    m_next->setEnabled(m_matches.size() > 1);
    m_previous->setEnabled(m_matches.size() > 1);
    showCurrent();
}

void LogEntryWindow::findNext()
{
    if (m_matches.isEmpty())
        return;
    m_current = (m_current + 1) % int(m_matches.size());
    showCurrent();
}

void LogEntryWindow::findPrevious()
{
    if (m_matches.isEmpty())
        return;
    m_current = (m_current - 1 + int(m_matches.size())) % int(m_matches.size());
    showCurrent();
}

void LogEntryWindow::showCurrent()
{
    // Every match is marked; the current one is the selection.
    QList<QTextEdit::ExtraSelection> marks;
    QColor mark = palette().color(QPalette::Highlight);
    mark.setAlpha(70);
    for (const QTextCursor &match : std::as_const(m_matches)) {
        QTextEdit::ExtraSelection selection;
        selection.cursor = match;
        selection.format.setBackground(mark);
        marks.append(selection);
    }
    m_text->setExtraSelections(marks);
    if (m_current >= 0) {
        m_text->setTextCursor(m_matches.at(m_current));
        m_text->ensureCursorVisible();
    }
    m_count->setText(matchCountText());
}

void LogEntryWindow::copyMessage()
{
    QClipboard *clipboard = QApplication::clipboard();
    clipboard->clear();
    clipboard->setText(m_entry.message);
}

void LogEntryWindow::saveMessage()
{
    FileDialogs::SaveRequest request;
    request.title = QStringLiteral("Save log entry");
    request.suggestedName = LogViewController::entryExportFileName();
    request.nameFilter = QStringLiteral("Text files (*.txt)");
    QPointer<LogViewController> controller = m_controller;
    const QUuid id = m_entry.id;
    const QString message = m_entry.message;
    FileDialogs::current()->chooseSaveFile(this, request, [controller, id, message](const QString &path) {
        if (path.isEmpty() || !controller)
            return;
        // The entry may have left the log since the window opened; its text is still here.
        if (!controller->exportEntryToFile(id, path) && !controller->entry(id)) {
            if (auto error = LogViewController::writeTextFile(path, message))
                controller->showAlert(QStringLiteral("Error"), *error);
        }
    });
}
