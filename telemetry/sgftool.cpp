// sgftool: summaries and tables of telemetry recordings for data work.
//
//   sgftool info FILE...
//   sgftool export FILE... [-o OUT] [options]
//
// Exit status: 0 when every input was done, 1 when any failed (the reason on standard error and in
// QLOG.txt), 2 for a command line it can't read (with the usage). Outputs are checked against the
// inputs before any is opened: a recording is never written over.
#include "telemetry/sgftool.h"

#include "foundation/qmessage.h"
#include "platform/platform.h"
#include "telemetry/analyse_import_any.h"
#include "telemetry/analyse_modifier.h"
#include "telemetry/analyse_signals.h"

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <set>

using namespace tarvik;

namespace {

const char* const generalUsage =
    "Usage: sgftool <command> [arguments]\n"
    "Summaries and tables of telemetry recordings (.sgf, text tables, other loggers' files).\n"
    "\n"
    "Commands:\n"
    "  info FILE...            properties, sample rate, channels and laps of each recording\n"
    "  export FILE... [-o OUT] tables of the recordings as CSV, TSV or the text export\n"
    "\n"
    "'sgftool <command> --help' tells more. Exit status: 0 done, 1 an input failed, 2 usage error.\n";

const char* const infoUsage =
    "Usage: sgftool info FILE...\n"
    "Per recording: its properties, the sample rate, each channel (name, unit, samples, minimum,\n"
    "maximum) and the laps (number, start, lap time, distance), the fastest lap marked.\n"
    "Laps come from the signal 'lap', else from the resets of 'distance'.\n";

const char* const exportUsage =
    "Usage: sgftool export FILE... [-o OUT] [options]\n"
    "Writes a table per recording. Columns: time, distance (rising, as in the text export), lapdist\n"
    "(restarting at 0 each lap), then the other channels in the recording's order.\n"
    "\n"
    "  -o OUT            a folder for the tables, a file (one input), or - for standard output;\n"
    "                    default: beside each input, with the format's extension\n"
    "  --format F        text, csv or tsv (default csv). text is the table sgf2ascii writes;\n"
    "                    csv has one header line and LF line ends, tsv the same with tabs\n"
    "  --lap N           only lap N\n"
    "  --fastest         only the fastest complete lap\n"
    "  --split-laps      one table per lap: NAME.lapNN.csv\n"
    "  --channels a,b,c  only these channels, in this order\n"
    "  --units           header names with units, as velocity[m/s]\n"
    "  --modifier FILE   renames, scales and drops columns (the export modifier file)\n"
    "  --from T --to T   only rows from T to T seconds of the recording\n"
    "  --resample HZ     rows on a regular time base, linearly interpolated\n"
    "  --meta            the head (properties, meta-properties, units) as OUT.meta.json\n"
    "  -j N              N recordings at once\n"
    "\n"
    "--channels, --units, --from, --to and --resample need csv or tsv.\n";

int Usage(const char* usage, const char* problem)
{
    std::fprintf(stderr, "sgftool: %s\n%s", problem, usage);
    return 2;
}

bool ParseInt(const char* text, int lo, int hi, int* value)
{
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(text, &end, 10);
    if (!*text || *end || errno || v < lo || v > hi) return false;
    *value = int(v);
    return true;
}

bool ParseDouble(const char* text, double* value)
{
    char* end = nullptr;
    const double v = std::strtod(text, &end);
    if (!*text || *end || !std::isfinite(v)) return false;
    *value = v;
    return true;
}

bool IsValueOption(const std::string& a)
{
    for (const char* o : {"-o", "--format", "--lap", "--channels", "--modifier", "--from", "--to", "--resample", "-j"})
        if (a == o) return true;
    return false;
}

std::string BaseName(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The name without its last extension; a leading dot is part of the name.
std::string Stem(const std::string& path)
{
    const size_t slash = path.find_last_of('/');
    const size_t start = slash == std::string::npos ? 0 : slash + 1;
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || dot <= start) return path;
    return path.substr(0, dot);
}

// Lines on standard error saying how far a long run is, only for a person watching a terminal:
// at most one a second, and the last. Whole lines, since the imports report on the same stream.
struct Progress {
    int total = 0;
    int done = 0;
    bool terminal = false;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    double shownAt = 0.0; // seconds since the start of the last line; 0: none yet

    void Step()
    {
        done++;
        if (!terminal || total < 2) return;
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (seconds < shownAt + 1.0 && done < total) return;
        if (shownAt == 0.0 && seconds < 1.0) return; // a short run says nothing
        std::fprintf(stderr, "sgftool: %d of %d recordings done (%.0f s)\n", done, total, seconds);
        std::fflush(stderr);
        shownAt = seconds;
    }
};

struct Job {
    std::vector<std::string> inputs;
    std::vector<std::string> outputs;
    ToolExportOptions options;
    AsciiExportModifier* modifier = nullptr; // owned; null without --modifier
    Progress progress;
};

int ExportOne(int index, void* context)
{
    Job& job = *static_cast<Job*>(context);
    const char* input = job.inputs[size_t(index)].c_str();
    PSignals* set = new PSignals;
    bool ok = PImportAny(*set, input);
    if (!ok) QERROR("Failed to load '%s'", input);
    else ok = ToolExport(*set, job.options, job.modifier, job.outputs[size_t(index)], job.inputs);
    delete set;
    return ok ? 0 : 1;
}

void ExportDone(int, bool, void* context) { static_cast<Job*>(context)->progress.Step(); }

int Info(int argc, char** argv)
{
    std::vector<std::string> inputs;
    for (int i = 0; i < argc; i++) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::fputs(infoUsage, stdout);
            return 0;
        }
        if (argv[i][0] == '-') return Usage(infoUsage, (std::string("unknown option ") + argv[i]).c_str());
        inputs.push_back(argv[i]);
    }
    if (inputs.empty()) return Usage(infoUsage, "no recording given");
    int failed = 0;
    for (size_t i = 0; i < inputs.size(); i++) {
        PSignals* set = new PSignals;
        if (PImportAny(*set, inputs[i].c_str())) {
            ToolLaps laps;
            ToolFindLaps(*set, &laps);
            if (i) std::fputc('\n', stdout);
            ToolWriteInfo(stdout, *set, laps);
            std::fflush(stdout);
        } else {
            QERROR("Failed to load '%s'", inputs[i].c_str());
            failed++;
        }
        delete set;
    }
    return failed ? 1 : 0;
}

int Export(int argc, char** argv)
{
    Job job;
    ToolExportOptions& o = job.options;
    std::string out;
    int parallel = 1;
    bool textOnly = false; // an option that only the csv and tsv tables know
    for (int i = 0; i < argc; i++) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        const char* value = hasValue ? argv[i + 1] : "";
        if (a == "--help" || a == "-h") {
            std::fputs(exportUsage, stdout);
            return 0;
        }
        if (a == "--fastest") o.fastest = true;
        else if (a == "--split-laps") o.splitLaps = true;
        else if (a == "--units") o.units = textOnly = true;
        else if (a == "--meta") o.meta = true;
        else if (a == "-") return Usage(exportUsage, "recordings are read from files, not from standard input");
        else if (a[0] != '-') job.inputs.push_back(a);
        else if (!IsValueOption(a)) return Usage(exportUsage, ("unknown option " + a).c_str());
        else if (!hasValue) return Usage(exportUsage, (a + " needs a value").c_str());
        else {
            i++;
            if (a == "-o") out = value;
            else if (a == "--format") {
                if (!std::strcmp(value, "text")) o.format = TOOL_TEXT;
                else if (!std::strcmp(value, "csv")) o.format = TOOL_CSV;
                else if (!std::strcmp(value, "tsv")) o.format = TOOL_TSV;
                else return Usage(exportUsage, (std::string("unknown format ") + value).c_str());
            } else if (a == "--lap") {
                if (!ParseInt(value, 0, 1000000, &o.lap)) return Usage(exportUsage, "--lap needs a lap number");
            } else if (a == "--channels") {
                textOnly = true;
                std::string list = value;
                for (size_t p = 0; p <= list.size();) {
                    size_t comma = list.find(',', p);
                    if (comma == std::string::npos) comma = list.size();
                    if (comma > p) o.channels.push_back(list.substr(p, comma - p));
                    p = comma + 1;
                }
                if (o.channels.empty()) return Usage(exportUsage, "--channels needs names");
            } else if (a == "--modifier") {
                o.modifierFile = value;
            } else if (a == "--from" || a == "--to") {
                textOnly = true;
                if (!ParseDouble(value, a == "--from" ? &o.from : &o.to))
                    return Usage(exportUsage, (a + " needs seconds").c_str());
            } else if (a == "--resample") {
                textOnly = true;
                if (!ParseDouble(value, &o.resampleHz) || !(o.resampleHz > 0.0 && o.resampleHz <= 1e6))
                    return Usage(exportUsage, "--resample needs a rate in Hz above 0");
            } else if (a == "-j") {
                if (!ParseInt(value, 1, 256, &parallel)) return Usage(exportUsage, "-j needs a number from 1 to 256");
            } else {
                return Usage(exportUsage, ("unknown option " + a).c_str());
            }
        }
    }
    if (job.inputs.empty()) return Usage(exportUsage, "no recording given");
    if (textOnly && o.format == TOOL_TEXT)
        return Usage(exportUsage, "--channels, --units, --from, --to and --resample need csv or tsv");
    if (o.fastest && o.lap != -1) return Usage(exportUsage, "--lap and --fastest exclude each other");
    if (o.splitLaps && (o.fastest || o.lap != -1)) return Usage(exportUsage, "--split-laps writes every lap");
    if (o.from > o.to) return Usage(exportUsage, "--from is after --to");

    // The outputs' names, all known before anything is read or written.
    const std::string ext = ToolExtension(o.format);
    if (out == "-") {
        if (job.inputs.size() > 1) return Usage(exportUsage, "-o - takes one recording");
        if (o.splitLaps || o.meta) return Usage(exportUsage, "--split-laps and --meta need files, not -o -");
        job.outputs.push_back(out);
    } else if (!out.empty()) {
        PlatformFileStatus status;
        const bool folder = PlatformStat(out.c_str(), &status) && status.isDirectory;
        if (!folder && out.back() == '/') {
            QERROR("sgftool: the output folder '%s' does not exist", out.c_str());
            return 1;
        }
        if (folder) {
            const std::string base = out.back() == '/' ? out : out + "/";
            for (const std::string& input : job.inputs) job.outputs.push_back(base + BaseName(Stem(input)) + "." + ext);
        } else if (job.inputs.size() > 1) {
            return Usage(exportUsage, "several recordings need -o to name a folder");
        } else {
            job.outputs.push_back(out);
        }
    } else {
        for (const std::string& input : job.inputs) job.outputs.push_back(Stem(input) + "." + ext);
    }
    std::set<std::string> names;
    for (const std::string& name : job.outputs) {
        if (name != "-" && !names.insert(name).second) {
            QERROR("sgftool: two recordings would be written to '%s'", name.c_str());
            return 1;
        }
        if (name != "-" && !ToolOutputAllowed(name, job.inputs)) return 1;
    }

    if (!o.modifierFile.empty()) {
        job.modifier = new AsciiExportModifier;
        qstring reason;
        if (!job.modifier->Load(o.modifierFile.c_str(), &reason)) {
            QERROR("sgftool: can't read the modifier file '%s': %s", o.modifierFile.c_str(), reason.cstr());
            delete job.modifier;
            return 1;
        }
    }

    job.progress.total = int(job.inputs.size());
    job.progress.terminal = PlatformIsTerminal(2);
    int failed = 0;
    if (parallel > 1 && job.inputs.size() > 1) {
        failed = PlatformRunChildren(int(job.inputs.size()), parallel, ExportOne, ExportDone, &job);
    } else {
        for (size_t i = 0; i < job.inputs.size(); i++) {
            if (ExportOne(int(i), &job) != 0) failed++;
            job.progress.Step();
        }
    }
    delete job.modifier;
    return failed ? 1 : 0;
}

// An allocation of the tree's own objects that fails ends the run with a report rather than an
// uncaught exception.
void OutOfMemory()
{
    qfatal("sgftool: out of memory");
}

} // namespace

int main(int argc, char** argv)
{
    std::set_new_handler(OutOfMemory);
    if (argc < 2) return Usage(generalUsage, "no command given");
    const std::string command = argv[1];
    if (command == "--help" || command == "-h" || command == "help") {
        std::fputs(generalUsage, stdout);
        return 0;
    }
    if (command == "info") return Info(argc - 2, argv + 2);
    if (command == "export") return Export(argc - 2, argv + 2);
    return Usage(generalUsage, ("unknown command " + command).c_str());
}
