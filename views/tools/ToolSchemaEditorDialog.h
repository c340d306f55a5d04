#pragma once

#include "app/config/ToolInputSchemaEditor.h"
#include "app/config/ToolOutputSchemaEditor.h"

#include <QDialog>
#include <memory>
#include <variant>

class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QTabWidget;
class QTableWidget;

// The schema editor sheet, "Add Input Scheme" or "Add Output Scheme": the schema's type and
// required list, its parameters, and the form of the selected one (with the members of an
// "object" parameter). Every change goes straight into the form, which writes the record.
// The "JSON" tab edits the tool's whole schema of this kind as text: what parses as a schema
// is written as typed, anything else is named below the text and changes nothing.
class ToolSchemaEditorDialog : public QDialog {
    Q_OBJECT

public:
    using Editor = std::variant<std::unique_ptr<ToolInputSchemaEditor>, std::unique_ptr<ToolOutputSchemaEditor>>;

    ToolSchemaEditorDialog(Editor editor, bool input, QWidget *parent = nullptr);

    QListWidget *parameterList() const { return m_parameters; }
    QLineEdit *nameField() const { return m_name; }
    QComboBox *typeChoice() const { return m_type; }
    QTableWidget *membersTable() const { return m_members; }
    QLineEdit *itemsField() const { return m_items; }
    QLineEdit *enumField() const { return m_enum; }
    QTabWidget *tabs() const { return m_tabs; }
    QPlainTextEdit *jsonEditor() const { return m_json; }
    QLabel *jsonMessage() const { return m_jsonMessage; }
    void addParameter();
    void saveAndClose();
    void revertChanges();

private:
    template <class Fn>
    auto withEditor(Fn &&fn)
    {
        return std::visit([&](auto &editor) { return fn(*editor); }, m_editor);
    }
    void showForm();
    void showJson();
    void applyJson();
    static void showChoice(QComboBox *choice, const QString &value);

    Editor m_editor;
    bool m_loading = false;
    QLineEdit *m_schemaType;
    QLineEdit *m_required;
    QListWidget *m_parameters;
    QLineEdit *m_name;
    QComboBox *m_type;
    QLineEdit *m_description;
    QLineEdit *m_default;
    QComboBox *m_itemType;
    QLineEdit *m_items;
    QTableWidget *m_members;
    QLineEdit *m_enum;
    QTabWidget *m_tabs;
    QPlainTextEdit *m_json;
    QLabel *m_jsonMessage;
};
