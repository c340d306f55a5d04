#include "views/chat/HistoryPanel.h"

#include "chat/appearance/HistoryModel.h"
#include "views/common/FileDialogs.h"

#include <QApplication>
#include <QClipboard>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

constexpr int kIdRole = Qt::UserRole;

// Rows leave as plain text, so any text field (the chat's input among them) takes the drop.
class HistoryList : public QListWidget {
public:
    using QListWidget::QListWidget;

protected:
    QStringList mimeTypes() const override { return {QStringLiteral("text/plain")}; }
    QMimeData *mimeData(const QList<QListWidgetItem *> &items) const override
    {
        auto *data = new QMimeData;
        if (!items.isEmpty())
            data->setText(items.first()->data(Qt::ToolTipRole).toString());
        return data;
    }
};

QPushButton *makeButton(const char *name, const QString &text, QWidget *parent)
{
    auto *button = new QPushButton(text, parent);
    button->setObjectName(QString::fromLatin1(name));
    return button;
}

} // namespace

HistoryPanel::HistoryPanel(HistoryModel *model, QWidget *parent) : QWidget(parent), m_model(model)
{
    setObjectName(QStringLiteral("historyPanel"));
    m_search = new QLineEdit(this);
    m_search->setObjectName(QStringLiteral("historySearch"));
    m_search->setPlaceholderText(QStringLiteral("Search history"));
    m_search->setClearButtonEnabled(true);
    m_list = new HistoryList(this);
    m_list->setObjectName(QStringLiteral("historyList"));
    m_list->setDragEnabled(true);
    m_list->setDragDropMode(QAbstractItemView::DragOnly);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    m_list->setWordWrap(true);
    m_empty = new QLabel(this);
    m_empty->setObjectName(QStringLiteral("historyEmpty"));
    m_empty->setAlignment(Qt::AlignCenter);
    m_empty->setStyleSheet(QStringLiteral("color: gray;"));

    QPushButton *copy = makeButton("copyHistoryRow", QStringLiteral("Copy to clipboard"), this);
    QPushButton *remove = makeButton("deleteHistoryRow", QStringLiteral("Delete"), this);
    QPushButton *save = makeButton("saveHistory", QStringLiteral("Save history"), this);
    QPushButton *load = makeButton("loadHistory", QStringLiteral("Load history"), this);
    QPushButton *clear = makeButton("clearHistory", QStringLiteral("Clear history"), this);
    auto *rowActions = new QHBoxLayout;
    rowActions->addWidget(copy);
    rowActions->addWidget(remove);
    rowActions->addStretch();
    auto *fileActions = new QHBoxLayout;
    fileActions->addWidget(save);
    fileActions->addWidget(load);
    fileActions->addWidget(clear);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(new QLabel(QStringLiteral("<b>Input History</b>"), this));
    layout->addWidget(m_search);
    layout->addWidget(m_list, 1);
    layout->addWidget(m_empty, 1);
    layout->addLayout(rowActions);
    layout->addLayout(fileActions);

    connect(m_search, &QLineEdit::textChanged, this, &HistoryPanel::refresh);
    connect(m_model, &HistoryModel::changed, this, &HistoryPanel::refresh);
    connect(copy, &QPushButton::clicked, this, [this] { copyRow(m_list->currentRow()); });
    connect(remove, &QPushButton::clicked, this, [this] { deleteRow(m_list->currentRow()); });
    connect(save, &QPushButton::clicked, this, &HistoryPanel::chooseSaveFile);
    connect(load, &QPushButton::clicked, this, &HistoryPanel::chooseLoadFile);
    connect(clear, &QPushButton::clicked, this, &HistoryPanel::askToClear);
    connect(m_list, &QListWidget::itemDoubleClicked, this,
            [this](QListWidgetItem *item) { emit promptChosen(item->data(Qt::ToolTipRole).toString()); });
    connect(m_list, &QListWidget::currentRowChanged, this, [copy, remove](int row) {
        copy->setEnabled(row >= 0);
        remove->setEnabled(row >= 0);
    });
    connect(m_list, &QListWidget::customContextMenuRequested, this, [this](const QPoint &at) {
        const int row = m_list->row(m_list->itemAt(at));
        if (row < 0)
            return;
        QMenu menu(this);
        menu.addAction(QStringLiteral("Copy to clipboard"), this, [this, row] { copyRow(row); });
        menu.addAction(QStringLiteral("Delete"), this, [this, row] { deleteRow(row); });
        menu.exec(m_list->viewport()->mapToGlobal(at));
    });
    refresh();
}

QPushButton *HistoryPanel::button(const QString &objectName) const
{
    return findChild<QPushButton *>(objectName);
}

void HistoryPanel::refresh()
{
    const QList<HistoryItem> matches = m_model->search(m_search->text());
    m_list->clear();
    // Newest first: the prompt just sent is the one most often wanted again.
    for (auto it = matches.crbegin(); it != matches.crend(); ++it) {
        auto *row = new QListWidgetItem(it->prompt.simplified(), m_list);
        row->setData(kIdRole, it->id);
        row->setData(Qt::ToolTipRole, it->prompt);
        row->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled);
    }
    const bool empty = matches.isEmpty();
    m_empty->setText(m_model->items().isEmpty() ? QStringLiteral("No history yet") : QStringLiteral("No results"));
    m_empty->setVisible(empty);
    m_list->setVisible(!empty);
    button(QStringLiteral("copyHistoryRow"))->setEnabled(false);
    button(QStringLiteral("deleteHistoryRow"))->setEnabled(false);
    button(QStringLiteral("clearHistory"))->setEnabled(!m_model->items().isEmpty());
    button(QStringLiteral("saveHistory"))->setEnabled(!m_model->items().isEmpty());
}

QString HistoryPanel::prompt(int row) const
{
    const QListWidgetItem *item = m_list->item(row);
    return item ? item->data(Qt::ToolTipRole).toString() : QString();
}

void HistoryPanel::copyRow(int row)
{
    if (const QListWidgetItem *item = m_list->item(row))
        QApplication::clipboard()->setText(item->data(Qt::ToolTipRole).toString());
}

void HistoryPanel::deleteRow(int row)
{
    if (const QListWidgetItem *item = m_list->item(row))
        m_model->remove(item->data(kIdRole).toString());
}

void HistoryPanel::warn(const QString &text)
{
    auto *box = new QMessageBox(QMessageBox::Warning, text, text, QMessageBox::Ok, this);
    box->setObjectName(QStringLiteral("historyFailure"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

bool HistoryPanel::saveTo(const QString &path)
{
    if (const std::optional<QString> failure = m_model->saveToFile(path)) {
        warn(*failure);
        return false;
    }
    return true;
}

bool HistoryPanel::loadFrom(const QString &path)
{
    if (const std::optional<QString> failure = m_model->loadFromFile(path)) {
        warn(*failure);
        return false;
    }
    return true;
}

void HistoryPanel::askToClear()
{
    auto *box = new QMessageBox(QMessageBox::Warning, QStringLiteral("Clear history"),
                                QStringLiteral("Remove all %1 prompts from the input history?").arg(m_model->items().size()),
                                QMessageBox::NoButton, this);
    box->setObjectName(QStringLiteral("confirmClearHistory"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    QPushButton *clear = box->addButton(QStringLiteral("Clear"), QMessageBox::DestructiveRole);
    box->addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    connect(box, &QMessageBox::finished, this, [this, box, clear] {
        if (box->clickedButton() == clear)
            m_model->clear();
    });
    box->open();
}

void HistoryPanel::chooseSaveFile()
{
    FileDialogs::SaveRequest request;
    request.title = QStringLiteral("Save history");
    request.suggestedName = HistoryModel::suggestedFileName();
    request.nameFilter = QStringLiteral("JSON files (*.json)");
    FileDialogs::current()->chooseSaveFile(this, request, [this](const QString &path) {
        if (!path.isEmpty())
            saveTo(path);
    });
}

void HistoryPanel::chooseLoadFile()
{
    const QString path = QFileDialog::getOpenFileName(this, QStringLiteral("Load history"), QDir::homePath(),
                                                      QStringLiteral("JSON files (*.json);;All files (*)"));
    if (!path.isEmpty())
        loadFrom(path);
}
