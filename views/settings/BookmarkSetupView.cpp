#include "views/settings/BookmarkSetupView.h"

#include "tools/security/BookmarkController.h"
#include "app/security/BookmarkSetupViewModel.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QSet>
#include <QStackedWidget>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {
enum Column { EnabledColumn = 0, NameColumn = 1, PathColumn = 2 };
}

BookmarkSetupView::BookmarkSetupView(BookmarkSetupViewModel *model, bool showsClose, QWidget *parent)
    : QWidget(parent), m_model(model)
{
    setObjectName(QStringLiteral("bookmarkSetupView"));

    // Page 0: the introduction; its first line is the heading.
    auto *intro = new QWidget(this);
    const QString introduction = m_model->introductionText().trimmed();
    const qsizetype firstBreak = introduction.indexOf(QLatin1Char('\n'));
    auto *heading = new QLabel(introduction.left(firstBreak), intro);
    heading->setObjectName(QStringLiteral("bookmarkHeading"));
    QFont headingFont = heading->font();
    headingFont.setBold(true);
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.2);
    heading->setFont(headingFont);
    auto *introText = new QLabel(introduction.mid(firstBreak).trimmed(), intro);
    introText->setObjectName(QStringLiteral("bookmarkIntroduction"));
    introText->setWordWrap(true);
    introText->setAlignment(Qt::AlignTop | Qt::AlignLeft);
    introText->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *introLayout = new QVBoxLayout(intro);
    introLayout->setContentsMargins(0, 0, 0, 0);
    introLayout->setSpacing(10);
    introLayout->addWidget(heading);
    introLayout->addWidget(introText, 1);

    // Page 1: the table of drafts.
    auto *draftsPage = new QWidget(this);
    m_status = new QLabel(draftsPage);
    m_status->setObjectName(QStringLiteral("bookmarkStatus"));
    QFont bold = m_status->font();
    bold.setBold(true);
    m_status->setFont(bold);
    m_statusDetail = new QLabel(draftsPage);
    m_statusDetail->setObjectName(QStringLiteral("bookmarkStatusDetail"));

    m_table = new QTableWidget(0, 3, draftsPage);
    m_table->setObjectName(QStringLiteral("bookmarkTable"));
    m_table->setHorizontalHeaderLabels({QStringLiteral("Use"), QStringLiteral("Name"), QStringLiteral("Location")});
    m_table->horizontalHeader()->setSectionResizeMode(EnabledColumn, QHeaderView::ResizeToContents);
    m_table->horizontalHeader()->setSectionResizeMode(NameColumn, QHeaderView::Interactive);
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_table->setColumnWidth(NameColumn, 180);
    m_table->verticalHeader()->hide();
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    m_table->setAlternatingRowColors(true);

    auto *add = new QPushButton(QStringLiteral("Add..."), draftsPage);
    add->setObjectName(QStringLiteral("bookmarkAddButton"));
    add->setToolTip(BookmarkSetupViewModel::addPanelMessage);
    m_remove = new QPushButton(QStringLiteral("Remove"), draftsPage);
    m_remove->setObjectName(QStringLiteral("bookmarkRemoveButton"));
    auto *tableButtons = new QHBoxLayout;
    tableButtons->addWidget(add);
    tableButtons->addWidget(m_remove);
    tableButtons->addStretch();
    auto *draftsLayout = new QVBoxLayout(draftsPage);
    draftsLayout->setContentsMargins(0, 0, 0, 0);
    draftsLayout->addWidget(m_status);
    draftsLayout->addWidget(m_statusDetail);
    draftsLayout->addWidget(m_table, 1);
    draftsLayout->addLayout(tableButtons);
    auto *headless = new QLabel(QStringLiteral("The file tools read and write only inside these locations. "
                                               "From a terminal: kelvara access grant|revoke folder PATH"),
                                draftsPage);
    headless->setObjectName(QStringLiteral("bookmarkHeadlessNote"));
    headless->setWordWrap(true);
    headless->setTextInteractionFlags(Qt::TextSelectableByMouse);
    draftsLayout->addWidget(headless);

    m_pages = new QStackedWidget(this);
    m_pages->addWidget(intro);
    m_pages->addWidget(draftsPage);

    // One row of buttons under both pages: [Close]  ...  [Back] [Next | Finish]
    m_back = new QPushButton(QStringLiteral("Back"), this);
    m_next = new QPushButton(QStringLiteral("Next"), this);
    m_next->setObjectName(QStringLiteral("bookmarkNextButton"));
    m_finish = new QPushButton(QStringLiteral("Finish"), this);
    m_finish->setObjectName(QStringLiteral("bookmarkFinishButton"));
    m_finish->setToolTip(QStringLiteral("Store the ticked locations and forget the others"));
    auto *buttons = new QHBoxLayout;
    if (showsClose) {
        auto *close = new QPushButton(QStringLiteral("Close"), this);
        close->setObjectName(QStringLiteral("bookmarkCloseButton"));
        buttons->addWidget(close);
        connect(close, &QPushButton::clicked, this, &BookmarkSetupView::closeRequested);
    }
    buttons->addStretch();
    buttons->addWidget(m_back);
    buttons->addWidget(m_next);
    buttons->addWidget(m_finish);

    auto *layout = new QVBoxLayout(this);
    layout->setSpacing(12);
    layout->addWidget(m_pages, 1);
    layout->addLayout(buttons);

    QPushButton *next = m_next;
    QPushButton *back = m_back;
    QPushButton *finish = m_finish;
    connect(next, &QPushButton::clicked, m_model, &BookmarkSetupViewModel::nextPage);
    connect(back, &QPushButton::clicked, m_model, &BookmarkSetupViewModel::previousPage);
    // Finish applies first; a sheet then closes.
    connect(finish, &QPushButton::clicked, m_model, &BookmarkSetupViewModel::finish);
    if (showsClose)
        connect(finish, &QPushButton::clicked, this, &BookmarkSetupView::closeRequested);
    connect(add, &QPushButton::clicked, m_model, &BookmarkSetupViewModel::addLocation);
    connect(m_remove, &QPushButton::clicked, this, &BookmarkSetupView::removeSelected);
    connect(m_model, &BookmarkSetupViewModel::currentPageChanged, this, &BookmarkSetupView::showPage);
    connect(m_model, &BookmarkSetupViewModel::draftsChanged, this, &BookmarkSetupView::rebuildTable);
    connect(m_model, &BookmarkSetupViewModel::hasUnsavedChangesChanged, this, &BookmarkSetupView::updateStatus);
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { m_remove->setEnabled(m_table->selectionModel()->hasSelection()); });
    connect(m_table, &QTableWidget::itemChanged, this, [this](QTableWidgetItem *item) {
        if (m_rebuilding)
            return;
        const QUuid id = m_table->item(item->row(), EnabledColumn)->data(Qt::UserRole).toUuid();
        if (item->column() == EnabledColumn)
            m_model->setDraftEnabled(id, item->checkState() == Qt::Checked);
        else if (item->column() == NameColumn)
            m_model->setDraftDisplayName(id, item->text().trimmed());
    });

    rebuildTable();
    showPage();
}

void BookmarkSetupView::showPage()
{
    const bool intro = m_model->currentPage() == BookmarkSetupViewModel::introductionPage;
    m_pages->setCurrentIndex(m_model->currentPage());
    m_back->setVisible(!intro);
    m_next->setVisible(intro);
    m_finish->setVisible(!intro);
    (intro ? m_next : m_finish)->setDefault(true);
}

void BookmarkSetupView::rebuildTable()
{
    m_rebuilding = true;
    const QList<BookmarkDraft> drafts = m_model->drafts();
    m_table->setRowCount(int(drafts.size()));
    for (int row = 0; row < drafts.size(); ++row) {
        const BookmarkDraft &draft = drafts.at(row);
        auto *enabled = new QTableWidgetItem;
        enabled->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable);
        enabled->setCheckState(draft.enabled ? Qt::Checked : Qt::Unchecked);
        enabled->setData(Qt::UserRole, draft.id);
        auto *name = new QTableWidgetItem(draft.displayName);
        name->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable);
        auto *path = new QTableWidgetItem(BookmarkController::pathOf(draft.url));
        path->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
        path->setToolTip(path->text());
        m_table->setItem(row, EnabledColumn, enabled);
        m_table->setItem(row, NameColumn, name);
        m_table->setItem(row, PathColumn, path);
    }
    m_rebuilding = false;
    m_remove->setEnabled(m_table->selectionModel()->hasSelection());
    updateStatus();
}

void BookmarkSetupView::updateStatus()
{
    m_status->setText(m_model->statusTitle());
    m_status->setVisible(!m_model->statusTitle().isEmpty());
    m_statusDetail->setText(m_model->statusMessage());
    m_statusDetail->setVisible(!m_model->statusMessage().isEmpty());
}

void BookmarkSetupView::removeSelected()
{
    QSet<QUuid> ids;
    for (const QModelIndex &index : m_table->selectionModel()->selectedRows(EnabledColumn))
        ids.insert(index.data(Qt::UserRole).toUuid());
    m_model->removeDrafts(ids);
}
