#include "tools/vellux/rsc_command.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/resource_file.h"
#include "host/rsc_listing.h"
#include "host/table_export.h"
#include "host/table_source.h"

namespace vellux::tool {

namespace {

std::string ReadText(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error(path.string() + ": cannot open: " + std::strerror(errno));
    std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (in.bad()) throw std::runtime_error(path.string() + ": cannot read: " + std::strerror(errno));
    return text;
}

// `all` names the sources together, for what is about the merged file rather than one source.
void Report(std::ostream& messages, const std::string& all, const Diagnostic& diagnostic) {
    const char* severity = diagnostic.severity == Diagnostic::Severity::error ? "error" : "warning";
    messages << (diagnostic.source.empty() ? all : diagnostic.source) << ": " << severity << ": "
             << diagnostic.Text() << "\n";
}

struct CompileOptions {
    std::vector<std::string> sources;
    std::string output;
};

struct DumpOptions {
    std::string file;
    bool json = false;
};

void AddTableCompile(CLI::App& rsc, Action& action) {
    auto options = std::make_shared<CompileOptions>();
    CLI::App* compile = rsc.add_subcommand(
        "compile", "Compile table source (JSON) into a resource file; several sources are merged in order");
    compile->add_option("sources", options->sources, "Table sources, JSON")->required();
    compile->add_option("-o,--output", options->output, "Resource file to write")->required();
    compile->callback([options, &action] {
        action = [options] {
            return CompileTableFiles({options->sources.begin(), options->sources.end()}, options->output, std::cerr);
        };
    });
}

void AddDump(CLI::App& rsc, Action& action) {
    auto options = std::make_shared<DumpOptions>();
    CLI::App* dump = rsc.add_subcommand("dump", "List a resource file, or write it back as table source");
    dump->add_option("file", options->file, "Resource file")->required();
    dump->add_flag("--json", options->json, "Write table source that compiles to the same bytes");
    dump->callback([options, &action] {
        action = [options] { return DumpTableFile(options->file, options->json, std::cout); };
    });
}

}  // namespace

void AddRscCommands(CLI::App& app, Action& action) {
    CLI::App* rsc = app.add_subcommand("rsc", "Flare table files: compile and dump");
    rsc->require_subcommand(1);
    AddTableCompile(*rsc, action);
    AddDump(*rsc, action);
}

int CompileTableFiles(const std::vector<std::filesystem::path>& sources, const std::filesystem::path& output,
                      std::ostream& messages) {
    std::vector<SourceText> texts;
    std::string all;
    for (const std::filesystem::path& source : sources) {
        texts.push_back({source.string(), ReadText(source)});
        all += (all.empty() ? "" : ", ") + source.string();
    }
    const CompiledTable table = CompileTableSources(texts);
    if (const int failed = ReportCompilation(table, all, output, messages)) return failed;
    rsc::WriteResourceFile(output, table.file);
    return 0;
}

int ReportCompilation(const CompiledTable& table, const std::string& sources, const std::filesystem::path& output,
                      std::ostream& messages) {
    for (const Diagnostic& diagnostic : table.diagnostics.All()) Report(messages, sources, diagnostic);
    const size_t errors = table.diagnostics.ErrorCount();
    if (errors == 0) return 0;
    messages << sources << ": " << errors << (errors == 1 ? " error; " : " errors; ") << output.string() << " not written\n";
    return kExitFailure;
}

int DumpTableFile(const std::filesystem::path& file, bool json, std::ostream& out) {
    const rsc::ResourceFile resources = rsc::ReadResourceFile(file);
    if (!json) {
        WriteListing(out, file.string(), resources);
        return 0;
    }
    try {
        out << FormatTableSource(TableSourceFromFile(resources));
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(file.string() + ": " + error.what());
    }
    return 0;
}

}  // namespace vellux::tool
