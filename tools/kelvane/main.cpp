// kelvane: the host emulator. Loads the plug-in (dlopen, or LoadLibraryW on Windows), resolves
// exports by name and calls them with the host signature, exactly as the host application does.
//
//   kelvane --version                             the version of the tool and the plug-in it belongs to
//   kelvane --help-all                            the help of every subcommand (the manual page's text)
//   kelvane list                                  the exports the plug-in offers
//   kelvane call NAME [--text T] [--number N] [--mem1 M] [--null-text] [--null-mem1]
//   kelvane run SCRIPT [--keep-going]            one call per line, '#' starts a comment
//   kelvane pose IN OUT --group G [--axis z] [--angle DEG] [--about x,y,z]
//                                                 the host's posing: turns one group of an OBJ
//   kelvane verify --part P --posed-part Q --combined C --group G [--vyt V]
//                                                 checks a part that came back from a split
//   kelvane check MESH...                         what would keep meshes from coming back from a round
//   kelvane combine PART... --out COMBINED        the safe round's first half: checked parts combined
//   kelvane split-back POSED --round R --out DIR  its second half: every part back whole, or refused
//   kelvane render MESH... --out OUT.png [--view front] [--size 800]
//                                                 OBJ and Vyx meshes as a shaded picture
//   kelvane image IN OUT.png                      a PSD or BMP of the plug-in as a PNG
// Scripts may also use `echo`, `pose` and `verify` lines.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "codes.h"
#include "kelvane/Kelvane4.h"
#include "kelvane_version.h"
#include "platform/library.h"
#include "meshcheck.h"
#include "plugin.h"
#include "pose.h"
#include "round.h"
#include "viewcmd.h"

namespace {

constexpr size_t kMemBlockSize = 1 << 20;  // the host hands over blocks of at least 64 KiB

// Splits a script line into words: blanks separate, '…' and "…" quote, a backslash escapes
// the next character outside single quotes, '#' outside quotes starts a comment.
bool splitWords(const std::string& line, std::vector<std::string>& words, std::string& error) {
    words.clear();
    std::string cur;
    bool inWord = false;
    char quote = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        if (quote) {
            if (c == quote) quote = 0;
            else if (c == '\\' && quote == '"' && i + 1 < line.size()) cur += line[++i];
            else cur += c;
        } else if (c == '\'' || c == '"') {
            quote = c;
            inWord = true;
        } else if (c == '\\' && i + 1 < line.size()) {
            cur += line[++i];
            inWord = true;
        } else if (c == '#' && !inWord) {
            break;
        } else if (std::isspace(static_cast<unsigned char>(c))) {
            if (inWord) words.push_back(cur);
            cur.clear();
            inWord = false;
        } else {
            cur += c;
            inWord = true;
        }
    }
    if (quote) {
        error = "unterminated quote";
        return false;
    }
    if (inWord) words.push_back(cur);
    return true;
}

}  // namespace

namespace kvtool {

using Variables = std::map<std::string, float>;

// One call's arguments, from the command line or a script line.
struct CallArgs {
    std::string name, text, number, mem1, expect, expectMem1;
    bool nullText = false, nullMem1 = false, expectMem1Given = false;
    std::vector<std::string> setVars, addVars;
};

std::string formatResult(float r) {
    if (std::isfinite(r) && std::nearbyint(r) == r && std::fabs(r) < 1e16f) {
        char buf[32];
        std::snprintf(buf, sizeof buf, "%.0f", static_cast<double>(r));
        return buf;
    }
    char buf[32];
    auto res = std::to_chars(buf, buf + sizeof buf, r);
    return std::string(buf, res.ptr);
}

std::string withMeaning(const std::string& name, float r) {
    std::string text = formatResult(r);
    if (std::string_view meaning = r < 0 ? codeMeaning(name, r) : ""; !meaning.empty())
        text.append(" (").append(meaning).append(")");
    return text;
}

bool parseNumber(const std::string& s, double& out) {
    const char* b = s.c_str();
    char* e = nullptr;
    out = std::strtod(b, &e);
    return e != b && *e == '\0';
}

Plugin::~Plugin() {
    if (handle) kv::platform::unloadLibrary(handle);
}

bool Plugin::open(const std::string& p, std::string& error) {
    path = p;
    handle = kv::platform::loadLibrary(p, error);
    return handle != nullptr;
}

KelvaneFn Plugin::find(const std::string& name) const {
    return handle ? reinterpret_cast<KelvaneFn>(kv::platform::findSymbol(handle, name.c_str())) : nullptr;
}

int callOnce(const Plugin& plugin, const CallArgs& args, Variables& vars, std::ostream& out, std::ostream& err,
             float* resultOut) {
    KelvaneFn fn = plugin.find(args.name);
    if (!fn) {
        err << "kelvane: the plug-in has no export named " << args.name << "\n";
        return 2;
    }
    double number = 0;
    if (!args.number.empty() && !parseNumber(args.number, number)) {
        err << "kelvane: --number " << args.number << " is not a number\n";
        return 2;
    }
    std::vector<char> mem1(kMemBlockSize, '\0'), mem2(kMemBlockSize, '\0');
    std::memcpy(mem1.data(), args.mem1.data(), std::min(args.mem1.size(), kMemBlockSize - 1));
    const std::string before(mem1.data());

    float r = fn(args.nullText ? nullptr : args.text.c_str(), number, args.nullMem1 ? nullptr : mem1.data(),
                 mem2.data());
    if (resultOut) *resultOut = r;

    out << args.name << " -> " << withMeaning(args.name, r) << "\n";
    const std::string after(mem1.data(), strnlen(mem1.data(), kMemBlockSize));
    if (!args.nullMem1 && after != before) out << "  memBlock1: " << after << "\n";
    out.flush();

    for (const std::string& v : args.setVars) vars[v] = r;
    for (const std::string& v : args.addVars) vars[v] += r;

    if (!args.expect.empty()) {
        double want = 0;
        if (!parseNumber(args.expect, want)) {
            err << "kelvane: --expect " << args.expect << " is not a number\n";
            return 2;
        }
        if (!(static_cast<float>(want) == r || (std::isnan(want) && std::isnan(r)))) {
            err << "kelvane: " << args.name << " returned " << formatResult(r) << ", expected " << args.expect
                << "\n";
            return 1;
        }
    }
    if (args.expectMem1Given && (args.nullMem1 || after != args.expectMem1)) {
        err << "kelvane: " << args.name << " left \"" << after << "\" in memBlock1, expected \"" << args.expectMem1
            << "\"\n";
        return 1;
    }
    return 0;
}

void addCallOptions(CLI::App& app, CallArgs& a) {
    app.add_option("name", a.name, "Export to call")->required();
    app.add_option("--text", a.text, "The text argument");
    app.add_option("--number", a.number, "The number argument (any double: 1.5, -4, 5000000000, nan)");
    app.add_option("--mem1", a.mem1, "Initial content of memBlock1 (a second path, or empty for output)");
    app.add_flag("--null-text", a.nullText, "Pass a null text pointer");
    app.add_flag("--null-mem1", a.nullMem1, "Pass a null memBlock1 pointer");
    app.add_option("--expect", a.expect, "Fail unless the result equals this number");
    app.add_option("--expect-mem1", a.expectMem1, "Fail unless memBlock1 holds this text afterwards")
        ->each([&a](const std::string&) { a.expectMem1Given = true; });
    app.add_option("--set", a.setVars, "Store the result in a script variable ($NAME in later lines)");
    app.add_option("--add-to", a.addVars, "Add the result to a script variable");
}

// Replaces $NAME and ${NAME} with script variables, then environment variables.
std::string expandVariables(const std::string& word, const Variables& vars) {
    std::string out;
    for (size_t i = 0; i < word.size(); ++i) {
        if (word[i] != '$' || i + 1 >= word.size()) {
            out += word[i];
            continue;
        }
        size_t start = i + 1, end;
        bool braced = word[start] == '{';
        if (braced) {
            end = word.find('}', start);
            if (end == std::string::npos) {
                out += word.substr(i);
                break;
            }
            ++start;
        } else {
            end = start;
            while (end < word.size() && (std::isalnum(static_cast<unsigned char>(word[end])) || word[end] == '_'))
                ++end;
        }
        std::string key = word.substr(start, end - start);
        if (key.empty()) {
            out += '$';
            continue;
        }
        if (auto it = vars.find(key); it != vars.end()) out += formatResult(it->second);
        else if (const char* env = std::getenv(key.c_str())) out += env;
        i = braced ? end : end - 1;
    }
    return out;
}

// Runs a "pose" or "verify" line: 0 done, 1 the check or pose failed, 2 a bad line.
int runHostLine(const std::vector<std::string>& words, const std::string& where, std::ostream& out,
                std::ostream& err) {
    CLI::App lineApp{"script line"};
    PoseArgs pose;
    VerifyArgs verify;
    if (words[0] == "pose") addPoseOptions(lineApp, pose);
    else addVerifyOptions(lineApp, verify);
    try {
        std::vector<std::string> reversed(words.rbegin(), words.rend() - 1);
        lineApp.parse(reversed);
    } catch (const CLI::ParseError& e) {
        err << where << e.what() << "\n";
        return 2;
    }
    const int rc = words[0] == "pose" ? runPose(pose, out, err) : runVerify(verify, out, err);
    return rc == 2 ? 2 : rc != 0 ? 1 : 0;
}

// Runs a call line: 0 done, 1 the call failed (a negative result not expected) or a check
// failed, 2 a bad line.
int runCallLine(const Plugin& plugin, const std::vector<std::string>& words, Variables& vars,
                const std::string& where, std::ostream& out, std::ostream& err) {
    CLI::App lineApp{"script line"};
    CallArgs args;
    addCallOptions(lineApp, args);
    try {
        std::vector<std::string> reversed(words.rbegin(), words.rend());
        lineApp.parse(reversed);
    } catch (const CLI::ParseError& e) {
        err << where << e.what() << "\n";
        return 2;
    }
    float r = 0;
    const int rc = callOnce(plugin, args, vars, out, err, &r);
    if (rc == 2) return 2;
    if (rc == 0 && r < 0 && args.expect.empty()) err << where << args.name << " failed with " << withMeaning(args.name, r) << "\n";
    return rc != 0 || (r < 0 && args.expect.empty()) ? 1 : 0;
}

int runScript(const Plugin& plugin, const std::string& scriptPath, bool keepGoing, std::ostream& out,
              std::ostream& err) {
    std::ifstream in(scriptPath);
    if (!in) {
        err << "kelvane: cannot read " << scriptPath << "\n";
        return 2;
    }
    Variables vars;
    std::string line, error;
    std::vector<std::string> words;
    int status = 0, lineNo = 0;
    while (std::getline(in, line)) {
        const std::string where = scriptPath + ":" + std::to_string(++lineNo) + ": ";
        if (!splitWords(line, words, error)) {
            err << where << error << "\n";
            return 2;
        }
        if (words.empty()) continue;
        for (std::string& w : words) w = expandVariables(w, vars);
        if (words[0] == "echo") {  // a line of commentary for the reader of the output
            for (size_t i = 1; i < words.size(); ++i) out << (i > 1 ? " " : "") << words[i];
            out << "\n";
            continue;
        }
        const bool hostLine = words[0] == "pose" || words[0] == "verify";  // the host's side of a posing round
        const int rc = hostLine ? runHostLine(words, where, out, err) : runCallLine(plugin, words, vars, where, out, err);
        if (rc == 2) return 2;
        if (rc != 0) {
            status = 1;
            if (!keepGoing) return status;
        }
    }
    return status;
}

}  // namespace kvtool

int main(int argc, char** argv) {
    CLI::App app{"kelvane: load the Kelvane4 plug-in and call its exports as the host does"};
    app.require_subcommand(1);
    app.set_version_flag("--version", "kelvane " KELVANE_VERSION_STRING);
    app.set_help_all_flag("--help-all", "Print this help with every subcommand's options");
    std::string pluginPath = kv::platform::defaultPluginPath();
    // The default is found at run time, so the help (and the manual page made from it) says where.
    app.add_option("--plugin", pluginPath,
                   "Plug-in library to load (default: the one beside this program, in its ../lib, "
                   "or in the build folder)");

    CLI::App* list = app.add_subcommand("list", "Print the exports the plug-in offers");
    bool withData = false;
    list->add_flag("--data", withData, "Also print the exported module data symbols");

    // A subcommand whose options fill an argument record.
    auto subcommand = [&app](const char* name, const char* about, auto& args, auto addOptions) {
        CLI::App* sub = app.add_subcommand(name, about);
        addOptions(*sub, args);
        return sub;
    };
    kvtool::CallArgs callArgs;
    CLI::App* call =
        subcommand("call", "Call one export and print its result and memBlock1", callArgs, kvtool::addCallOptions);

    CLI::App* run = app.add_subcommand("run", "Run a script of calls, one per line");
    std::string script;
    bool keepGoing = false;
    run->add_option("script", script, "Script file")->required()->check(CLI::ExistingFile);
    run->add_flag("--keep-going", keepGoing, "Do not stop at the first negative result");

    kvtool::PoseArgs poseArgs;
    kvtool::VerifyArgs verifyArgs;
    kvtool::CheckArgs checkArgs;
    kvtool::CombineArgs combineArgs;
    kvtool::SplitBackArgs splitBackArgs;
    CLI::App* pose = subcommand("pose", "Turn the vertices of one group of an OBJ about a point", poseArgs, kvtool::addPoseOptions);
    CLI::App* verify = subcommand("verify", "Check a posed part against its mesh and the posed mesh", verifyArgs,
                                  kvtool::addVerifyOptions);
    CLI::App* check = subcommand("check", "List what would keep part meshes from coming back from a round", checkArgs,
                                 kvtool::addCheckOptions);
    CLI::App* combine = subcommand("combine", "Combine part meshes for posing, each checked first", combineArgs,
                                   kvtool::addCombineOptions);
    CLI::App* splitBack = subcommand("split-back", "Give every part of a combine its posed positions", splitBackArgs,
                                     kvtool::addSplitBackOptions);

    kvtool::ViewCommands views;
    kvtool::addViewCommands(app, views);

    CLI11_PARSE(app, argc, argv);
    if (int status = 0; kvtool::runViewCommand(views, status, std::cout, std::cerr)) return status;
    if (*pose) return kvtool::runPose(poseArgs, std::cout, std::cerr);
    if (*verify) return kvtool::runVerify(verifyArgs, std::cout, std::cerr);
    if (*check) return kvtool::runCheck(checkArgs, std::cout);

    kvtool::Plugin plugin;
    std::string error;
    if (!plugin.open(pluginPath, error)) {
        std::cerr << "kelvane: " << error << "\n";
        return 2;
    }
    if (*list) {
        std::vector<std::string> functions, data;
        if (!kv::platform::readExports(plugin.path, functions, data)) {
            std::cerr << "kelvane: cannot read the symbol table of " << plugin.path << "\n";
            return 2;
        }
        for (const std::string& f : functions)
            if (plugin.find(f)) std::cout << f << "\n";
        if (withData)
            for (const std::string& d : data) std::cout << d << " (data)\n";
        return 0;
    }
    if (*combine) return kvtool::runCombine(plugin, combineArgs, std::cout, std::cerr);
    if (*splitBack) return kvtool::runSplitBack(plugin, splitBackArgs, std::cout, std::cerr);
    if (*call) {
        kvtool::Variables vars;
        return kvtool::callOnce(plugin, callArgs, vars, std::cout, std::cerr, nullptr);
    }
    return kvtool::runScript(plugin, script, keepGoing, std::cout, std::cerr);
}
