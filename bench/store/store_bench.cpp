// Builds a store of 10,000 tools, each with an input and an output schema of five
// parameters, then measures what the tools screen pays on start: opening the file and
// fetching the tools list with its schema prefetch. Also prints the cost of the first
// read of every parameter, of saving one edit, and of a rollback.
//
//   store_bench [--tools N] [--runs N]
#include "store/PersistenceController.h"
#include "store/ToolInSchemaParams.h"
#include "store/ToolInputSchema.h"
#include "store/ToolOutSchemeParams.h"
#include "store/ToolOutputSchema.h"
#include "store/ToolsConfig.h"
#include "store/ToolsQueryService.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

double elapsedMs(const QElapsedTimer &timer) { return double(timer.nsecsElapsed()) / 1e6; }

void build(const QString &path, int toolCount)
{
    PersistenceController store(path);
    StoreContext *context = store.viewContext();
    for (int i = 0; i < toolCount; ++i) {
        ToolsConfig *tool = ToolsQueryService::createTool(context, i);
        tool->setName(QStringLiteral("tool_%1").arg(i, 5, 10, QLatin1Char('0')));
        ToolInputSchema *input = ToolsQueryService::createInputSchema(context);
        ToolOutputSchema *output = ToolsQueryService::createOutputSchema(context);
        input->properties().first()->setParameterName(QStringLiteral("p0"));
        output->properties().first()->setParameterName(QStringLiteral("r0"));
        for (int p = 1; p < 5; ++p) {
            ToolInSchemaParams *in = ToolsQueryService::createInSchemaParams(context);
            in->setParameterName(QStringLiteral("p%1").arg(p));
            input->addPropertiesObject(in);
            ToolOutSchemeParams *out = ToolsQueryService::createOutSchemeParams(context);
            out->setParameterName(QStringLiteral("r%1").arg(p));
            output->addPropertiesObject(out);
        }
        tool->addInputSchemasObject(input);
        tool->addOutputSchmasObject(output);
    }
    if (const Result<void> saved = context->save(); !saved) {
        std::fprintf(stderr, "save failed: %s\n", qPrintable(saved.error().description));
        std::exit(1);
    }
}

}  // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int toolCount = 10000;
    int runs = 7;
    const QStringList args = app.arguments();
    for (int i = 1; i + 1 < args.size(); ++i) {
        if (args[i] == QLatin1String("--tools"))
            toolCount = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--runs"))
            runs = args[i + 1].toInt();
    }

    QTemporaryDir dir;
    const QString path = dir.path() + QStringLiteral("/Kelvara.sqlite");
    QElapsedTimer timer;
    timer.start();
    build(path, toolCount);
    std::printf("Store benchmark: %d tools, 1 input + 1 output schema of 5 parameters each (%d records)\n", toolCount,
                toolCount * 13);
    std::printf("  build and save in one transaction: %8.1f ms\n", elapsedMs(timer));

    std::vector<double> openFetch;
    for (int run = 0; run < runs; ++run) {
        timer.restart();
        auto store = std::make_unique<PersistenceController>(path);
        const QList<ToolsConfig *> tools = ToolsQueryService::fetchTools(store->viewContext()).valueOr({});
        qsizetype schemas = 0;
        for (ToolsConfig *tool : tools)
            schemas += tool->inputSchemas().size() + tool->outputSchmas().size();
        openFetch.push_back(elapsedMs(timer));
        if (tools.size() != toolCount || schemas != 2 * toolCount) {
            std::fprintf(stderr, "unexpected content: %lld tools, %lld schemas\n", qlonglong(tools.size()),
                         qlonglong(schemas));
            return 1;
        }
        if (run + 1 == runs) {
            timer.restart();
            qsizetype params = 0;
            for (ToolsConfig *tool : tools) {
                for (ToolInputSchema *schema : ToolsQueryService::sortedInputSchemas(tool))
                    params += ToolsQueryService::sortedProperties(schema).size();
                for (ToolOutputSchema *schema : ToolsQueryService::sortedOutputSchemas(tool))
                    params += ToolsQueryService::sortedProperties(schema).size();
            }
            const double readParams = elapsedMs(timer);
            tools[toolCount / 2]->setToolDescription(QStringLiteral("edited"));
            tools[toolCount / 2]->inputSchemas().first()->properties().first()->setParameterType(
                QStringLiteral("number"));
            timer.restart();
            if (const Result<void> saved = store->viewContext()->save(); !saved) {
                std::fprintf(stderr, "save failed: %s\n", qPrintable(saved.error().description));
                std::exit(1);
            }
            const double saveEdit = elapsedMs(timer);
            ToolsQueryService::createTool(store->viewContext(), toolCount);
            tools.first()->setName(QStringLiteral("renamed"));
            timer.restart();
            store->viewContext()->rollback();
            const double rollback = elapsedMs(timer);
            std::printf("  first read of all %lld parameters:   %8.1f ms\n", qlonglong(params), readParams);
            std::printf("  save of one edited tool:            %8.1f ms\n", saveEdit);
            std::printf("  rollback of an insert and an edit:  %8.1f ms\n", rollback);
        }
    }
    std::sort(openFetch.begin(), openFetch.end());
    std::printf("  open + fetch tools with prefetch:   %8.1f ms median, %.1f ms best, %.1f ms worst of %d runs (goal < "
                "300 ms)\n",
                openFetch[openFetch.size() / 2], openFetch.front(), openFetch.back(), runs);
    return 0;
}
