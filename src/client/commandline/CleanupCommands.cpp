#include "client/commandline/CleanupOutput.h"
#include "client/commandline/CleanupRemoval.h"
#include "client/commandline/Commands.h"
#include "client/commandline/FolderMeasurements.h"

namespace kavaro {

namespace {

// Measures folders and lists what could go of each.
template <class Show>
int listOffers(const CleanupOptions& options, const CommandContext& context, Show show) {
    FolderMeasurements measurements(options, context);
    Output output(context.output);
    const bool isArray = options.json && options.folders.size() > 1;
    int shown = 0;
    if (isArray) output.put('[');
    measurements.run([&](const std::string& argument, Measurement& measurement) {
        if (shown++ > 0) output.write(options.json ? ",\n" : "\n");
        show(output, measurement);
        if (options.json && !isArray) output.put('\n');
        output.flush();
        if (!options.json) measurements.reportUnread(argument, measurement, options.errors);
        return !output.failed();
    });
    if (isArray) output.write("]\n");
    measurements.finishOutput(output);
    return measurements.exitCode();
}

}  // namespace

int runLanguages(const CleanupOptions& options, const CommandContext& context) {
    if (options.remove) return removeLanguages(options, context);
    const ColorDepth color = colorDepth(options.color, context.outputIsTerminal);
    return listOffers(options, context, [&](Output& output, const Measurement& measurement) {
        const LanguageOffer offer = offeredLanguages(*measurement.root);
        if (options.json)
            writeLanguagesJson(output, measurement, offer, options.summary);
        else
            writeLanguages(output, measurement, offer, options.summary, color);
    });
}

int runNibs(const CleanupOptions& options, const CommandContext& context) {
    if (options.remove) return removeNibs(options, context);
    const ColorDepth color = colorDepth(options.color, context.outputIsTerminal);
    return listOffers(options, context, [&](Output& output, const Measurement& measurement) {
        const NibOffer offer = offeredNibs(*measurement.root);
        if (options.json)
            writeNibsJson(output, measurement, offer);
        else
            writeNibs(output, measurement, offer, color);
    });
}

}  // namespace kavaro
