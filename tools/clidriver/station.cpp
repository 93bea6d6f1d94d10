#include "station.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

#include "reports.h"
#include "script.h"

namespace shell
{
namespace
{

// A report file, opened before the run so that a wrong path is known before any command runs.
class ReportFile
{
  public:
    ReportFile() = default;
    ReportFile(const ReportFile &) = delete;
    ReportFile &operator=(const ReportFile &) = delete;
    ~ReportFile()
    {
        if (file_ != nullptr)
            fclose(file_);
    }

    bool open(const std::string &path, FILE *err)
    {
        path_ = path;
        if (path.empty())
            return true;
        file_ = fopen(path.c_str(), "w");
        if (file_ == nullptr)
            fprintf(err, "clidriver: cannot write report %s: %s\n", path.c_str(), strerror(errno));
        return file_ != nullptr;
    }

    bool write(const std::string &text, FILE *err)
    {
        if (file_ == nullptr)
            return true;
        const bool written = fwrite(text.data(), 1, text.size(), file_) == text.size();
        const bool closed = fclose(file_) == 0;
        file_ = nullptr;
        if (!written || !closed)
            fprintf(err, "clidriver: cannot write report %s: %s\n", path_.c_str(), strerror(errno));
        return written && closed;
    }

  private:
    std::string path_;
    FILE *file_ = nullptr;
};

} // namespace

int run_station(Shell &shell, const StationOptions &options)
{
    std::ifstream file(options.script, std::ios::binary);
    if (!file) {
        fprintf(shell.err(), "clidriver: cannot read station script %s: %s\n", options.script.c_str(),
                strerror(errno));
        return 2;
    }
    std::stringstream text;
    text << file.rdbuf();

    std::vector<std::string> errors;
    const Script script = parse_script(text.str(), options.script, shell, errors);
    if (!errors.empty()) {
        for (const std::string &error : errors)
            fprintf(shell.err(), "%s\n", error.c_str());
        fprintf(shell.err(), "clidriver: %s: %zu line%s to correct; nothing was run\n",
                options.script.c_str(), errors.size(), errors.size() == 1 ? "" : "s");
        return 2;
    }

    ReportFile junit, json;
    if (!junit.open(options.junit, shell.err()) || !json.open(options.json, shell.err()))
        return 2;

    const bool reports = !options.junit.empty() || !options.json.empty();
    const ScriptRun run = run_script(shell, script, reports);
    print_summary(shell.out(), run);

    bool written = junit.write(junit_xml(run), shell.err());
    written = json.write(json_report(run), shell.err()) && written;
    if (!written)
        return 2;
    return exit_code(run);
}

} // namespace shell
