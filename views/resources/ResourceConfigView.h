#pragma once

#include "views/common/ConfigScreen.h"

class QComboBox;
class QLabel;
class QLineEdit;
class ResourceConfig;
class ResourceConfigController;

// The Resources destination: the filtered list of resources beside the form of the selected
// one ("Resource Definition", "Annotation", "Resource Context"), with the tag and related-
// resource sheets. File ▸ New and Save act on its controller.
class ResourceConfigView : public ConfigScreen {
    Q_OBJECT

public:
    // Over a controller of the shared store unless one is given.
    explicit ResourceConfigView(ResourceConfigController *controller = nullptr, QWidget *parent = nullptr);

    ResourceConfigController *controller() const { return m_controller; }
    QLineEdit *nameField() const { return m_name; }
    QLineEdit *uriField() const { return m_uri; }
    QLineEdit *priorityField() const { return m_priority; }
    QLineEdit *valuesField() const { return m_values; }
    // The sheets, opened by their buttons; modal.
    void editTags();
    void editRelatedResources();

private:
    QLayout *makeForm();
    void rebuildList() override;
    void showSelection() override;

    ResourceConfigController *m_controller;
    QLineEdit *m_name;
    QLineEdit *m_description;
    QLineEdit *m_type;
    QLineEdit *m_mimeType;
    QLineEdit *m_uri;
    QComboBox *m_audience;
    QLineEdit *m_priority;
    QLineEdit *m_values;
    QLabel *m_tagsLabel;
    QLabel *m_relatedLabel;
};
