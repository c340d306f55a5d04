#include "views/chat/PromptPickerSheet.h"

#include "store/PromptArguments.h"
#include "store/PromptConfig.h"
#include "store/PromptQueryService.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

PromptPickerSheet::PromptPickerSheet(StoreContext *context, std::function<void(const QString &)> onInsert, QWidget *parent)
    : QDialog(parent), m_onInsert(std::move(onInsert))
{
    setObjectName(QStringLiteral("promptPicker"));
    setWindowTitle(QStringLiteral("Insert Prompt from Prompt-Config"));
    resize(520, 520);
    m_model.load(context);

    auto *choose = new QWidget(this);
    m_search = new QLineEdit(choose);
    m_search->setPlaceholderText(QStringLiteral("Search prompts…"));
    m_list = new QListWidget(choose);
    m_preview = new QLabel(choose);
    m_preview->setWordWrap(true);
    m_preview->setTextFormat(Qt::PlainText);
    auto *chooseLayout = new QVBoxLayout(choose);
    chooseLayout->addWidget(m_search);
    chooseLayout->addWidget(m_list, 1);
    chooseLayout->addWidget(new QLabel(QStringLiteral("<b>Template Preview</b>"), choose));
    chooseLayout->addWidget(m_preview);
    chooseLayout->addWidget(new QLabel(QStringLiteral("Placeholders in the form {{argument_name}} will be replaced on insert."), choose));

    auto *fill = new QWidget(this);
    auto *fillLayout = new QVBoxLayout(fill);
    fillLayout->addWidget(new QLabel(QStringLiteral("<b>Template Arguments</b>"), fill));
    m_arguments = new QVBoxLayout;
    fillLayout->addLayout(m_arguments);
    fillLayout->addStretch();

    m_pages = new QStackedWidget(this);
    m_pages->addWidget(choose);
    m_pages->addWidget(fill);
    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    m_next = buttons->addButton(QStringLiteral("Next"), QDialogButtonBox::AcceptRole);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_pages, 1);
    layout->addWidget(buttons);

    connect(m_search, &QLineEdit::textChanged, this, [this](const QString &text) {
        m_model.searchText = text;
        refreshList();
    });
    connect(m_list, &QListWidget::currentRowChanged, this, [this](int row) {
        const QList<PromptConfig *> rows = m_model.visibleRows();
        m_model.selected = row >= 0 && row < rows.size() ? rows.at(row) : nullptr;
        m_preview->setText(m_model.selected ? m_model.selected->templateText().value_or(QString()) : QString());
        m_next->setEnabled(m_model.selected != nullptr);
    });
    connect(m_list, &QListWidget::itemDoubleClicked, this, &PromptPickerSheet::goOn);
    connect(buttons, &QDialogButtonBox::accepted, this, &PromptPickerSheet::goOn);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    refreshList();
}

void PromptPickerSheet::refreshList()
{
    m_list->clear();
    const QList<PromptConfig *> rows = m_model.visibleRows();
    for (PromptConfig *row : rows)
        m_list->addItem(row->name().value_or(QString()) + QStringLiteral(" — ") + row->promptDescription().value_or(QString()));
    if (rows.isEmpty()) {
        auto *empty = new QListWidgetItem(m_model.emptyText(), m_list);
        empty->setFlags(Qt::NoItemFlags);
    }
    m_next->setEnabled(false);
}

void PromptPickerSheet::goOn()
{
    if (m_model.step == PromptPickerModel::Step::fillArguments) {
        if (!m_model.canInsert())
            return;
        m_onInsert(m_model.insertText());
        accept();
        return;
    }
    if (const std::optional<QString> text = m_model.proceed()) {
        m_onInsert(*text);
        accept();
        return;
    }
    if (m_model.step == PromptPickerModel::Step::fillArguments)
        showArguments();
}

void PromptPickerSheet::showArguments()
{
    m_pages->setCurrentIndex(1);
    m_next->setText(QStringLiteral("Insert"));
    const QList<PromptArguments *> arguments = PromptQueryService::sortedArguments(m_model.selected);
    if (arguments.isEmpty())
        m_arguments->addWidget(new QLabel(QStringLiteral("No arguments for this template.")));
    auto *grid = new QGridLayout;
    int row = 0;
    for (PromptArguments *argument : arguments) {
        const QString name = argument->name().value_or(QString()).trimmed();
        grid->addWidget(new QLabel(QStringLiteral("<b>%1</b> %2").arg(name.toHtmlEscaped(),
                                                                     argument->required() ? QStringLiteral("Required") : QStringLiteral("Optional"))),
                        row, 0);
        auto *value = new QLineEdit;
        value->setPlaceholderText(argument->info().value_or(QString()));
        auto *file = new QPushButton(QStringLiteral("Choose file"));
        auto *folder = new QPushButton(QStringLiteral("Choose folder"));
        grid->addWidget(value, row, 1);
        grid->addWidget(file, row, 2);
        grid->addWidget(folder, row, 3);
        connect(value, &QLineEdit::textChanged, this, [this, name](const QString &text) {
            m_model.argumentValues.insert(name, text);
            refreshInsert();
        });
        connect(file, &QPushButton::clicked, this, [this, value] {
            const QString path = QFileDialog::getOpenFileName(this, QStringLiteral("Choose file"));
            if (!path.isEmpty())
                value->setText(path);
        });
        connect(folder, &QPushButton::clicked, this, [this, value] {
            const QString path = QFileDialog::getExistingDirectory(this, QStringLiteral("Choose folder"));
            if (!path.isEmpty())
                value->setText(path);
        });
        ++row;
    }
    m_arguments->addLayout(grid);
    refreshInsert();
}

void PromptPickerSheet::refreshInsert()
{
    m_next->setEnabled(m_model.canInsert());
}
