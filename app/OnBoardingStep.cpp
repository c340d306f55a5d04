#include "app/OnBoardingStep.h"

#include <QCoreApplication>

QList<OnBoardingStep> OnBoardingStep::applicationSteps()
{
    using P = Position;
    auto tr = [](const char *text) { return QCoreApplication::translate("OnBoarding", text); };
    return {
        {10, tr("This is the server section. Configure host, port, and runtime behavior here."), P::trailing},
        {20, tr("Use prompts to create reusable prompt templates with optional arguments."), P::trailing},
        {30, tr("Resources provide additional context data for MCP clients."), P::trailing},
        {40, tr("Tools are executable MCP actions. Configure input and output schemas here."), P::trailing},
        {50, tr("Syntax Highlighted script editor with script testing"), P::trailing},
        {60, tr("Native plugin management. Add your own plugins."), P::trailing},
        {70, tr("AI Chat connects your configured models and MCP integrations."), P::trailing},
        {80, tr("In About you can check the version and import configuration data."), P::trailing},
        {90, tr("Take time to read carefully."), P::center},
        {91, tr("First, grant access to your work/personal folders."), P::top},
        {92, tr("For an easy start, import a predefined configuration package."), P::top},
        {93, tr("Install the ToolSDK to develop your own tools and expand your capabilities."), P::top},
    };
}
