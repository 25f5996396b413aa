// kiv completion bash|zsh: the shell completion of the tool, written from
// the tool's own command line (its subcommands, their options, the values
// an option takes from a list, such as the rule ids of --disable), so that
// it cannot fall behind it.  The build installs both where the shells look.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <sstream>

#include "common.h"
#include "model/rules.h"

namespace kivtool
{

namespace
{

struct option_info {
    std::vector<std::string> names; // "-q", "--quiet"
    std::string help;
    bool takes_value = false;
    bool file_value = false;         // the value is a file to write (-o)
    std::vector<std::string> values; // the values it takes, when a list
};

struct subcommand_info {
    std::string name, help;
    std::vector<option_info> options;
};

// The values of a list check, from the type name CLI11 gives it:
// "TEXT:{text,json,sarif}".
std::vector<std::string> listed_values(const std::string &type)
{
    std::vector<std::string> out;
    const size_t open = type.find('{'), close = type.rfind('}');
    if (open == std::string::npos || close == std::string::npos || close < open)
        return out;
    std::istringstream in(type.substr(open + 1, close - open - 1));
    for (std::string v; std::getline(in, v, ',');)
        out.push_back(v);
    return out;
}

std::vector<subcommand_info> describe(CLI::App &app)
{
    std::vector<subcommand_info> out;
    for (CLI::App *sub : app.get_subcommands([](CLI::App *) { return true; })) {
        subcommand_info s{sub->get_name(), sub->get_description(), {}};
        s.options.push_back({{"-h", "--help"}, "Print the help", false, false, {}});
        for (const CLI::Option *o : sub->get_options()) {
            if (o->get_positional() || o == sub->get_help_ptr())
                continue;
            option_info i;
            for (const std::string &n : o->get_snames())
                i.names.push_back("-" + n);
            for (const std::string &n : o->get_lnames())
                i.names.push_back("--" + n);
            i.help = o->get_description();
            i.takes_value = o->get_expected_max() > 0; // a flag expects none
            i.file_value = o->check_lname("output");
            i.values = listed_values(o->get_type_name());
            // A rule option's type is RULE, its list too long for a help
            // line: the rules' ids are offered.
            if (o->get_type_name() == "RULE")
                for (const rule &r : all_rules())
                    i.values.push_back(r.id);
            s.options.push_back(std::move(i));
        }
        out.push_back(std::move(s));
    }
    return out;
}

std::string joined(const std::vector<std::string> &words)
{
    std::string out;
    for (const std::string &w : words)
        out += (out.empty() ? "" : " ") + w;
    return out;
}

void write_bash(std::ostream &out, const std::vector<subcommand_info> &subs)
{
    std::vector<std::string> names;
    for (const subcommand_info &s : subs)
        names.push_back(s.name);
    out << "# bash completion of kiv, written by `kiv completion bash`.\n"
           "_kiv() {\n"
           "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} sub= i\n"
           "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
           "        case ${COMP_WORDS[i]} in -*) ;; *) sub=${COMP_WORDS[i]}; break ;; esac\n"
           "    done\n"
           "    if [[ -z $sub ]]; then\n"
           "        COMPREPLY=($(compgen -W \""
        << joined(names)
        << " --help --version\" -- \"$cur\"))\n"
           "        return\n"
           "    fi\n"
           "    local opts= values= value=0 files=1\n"
           "    case $sub in\n";
    for (const subcommand_info &s : subs) {
        std::vector<std::string> all;
        std::string cases;
        for (const option_info &o : s.options) {
            all.insert(all.end(), o.names.begin(), o.names.end());
            if (!o.takes_value)
                continue;
            std::string pattern = joined(o.names);
            std::replace(pattern.begin(), pattern.end(), ' ', '|');
            cases += "            " + pattern + ") value=1; values=\"" + joined(o.values) + "\"" +
                     (o.file_value ? "" : "; files=0") + " ;;\n";
        }
        out << "        " << s.name << ")\n            opts=\"" << joined(all) << "\"\n";
        if (!cases.empty())
            out << "            case $prev in\n" << cases << "            esac\n";
        if (s.name == "completion")
            out << "            values=\"bash zsh\"; value=1; files=0\n";
        else if (s.name == "lsp")
            out << "            files=0\n";
        out << "            ;;\n";
    }
    out << "    esac\n"
           "    if [[ -n $values ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$values\" -- \"$cur\"))\n"
           "    elif [[ $value == 0 && $cur == -* ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$opts\" -- \"$cur\"))\n"
           "    elif [[ $files == 1 ]]; then\n"
           "        compopt -o filenames 2>/dev/null\n"
           "        COMPREPLY=($(compgen -f -- \"$cur\"))\n"
           "    else\n"
           "        COMPREPLY=()\n"
           "    fi\n"
           "}\n"
           "complete -F _kiv kiv\n";
}

// A text inside a zsh completion spec: [ ] : ' and \ escaped.
std::string zsh_text(const std::string &s)
{
    std::string out;
    for (char c : s) {
        if (c == '\'')
            out += "'\\''";
        else if (c == '[' || c == ']' || c == ':' || c == '\\')
            out += std::string("\\") + c;
        else
            out += c;
    }
    return out;
}

void write_zsh(std::ostream &out, const std::vector<subcommand_info> &subs)
{
    out << "#compdef kiv\n"
           "# zsh completion of kiv, written by `kiv completion zsh`.\n"
           "_kiv() {\n"
           "    local -a subcommands\n"
           "    subcommands=(\n";
    for (const subcommand_info &s : subs)
        out << "        '" << s.name << ":" << zsh_text(s.help.substr(0, s.help.find(':')))
            << "'\n";
    out << "    )\n"
           "    if (( CURRENT == 2 )); then\n"
           "        _describe 'subcommand' subcommands\n"
           "        return\n"
           "    fi\n"
           "    case ${words[2]} in\n";
    for (const subcommand_info &s : subs) {
        out << "        " << s.name << ")\n            _arguments";
        for (const option_info &o : s.options)
            for (const std::string &n : o.names) {
                out << " \\\n                '" << n << "[" << zsh_text(o.help) << "]";
                if (o.takes_value)
                    out << ":value:"
                        << (!o.values.empty() ? "(" + joined(o.values) + ")"
                            : o.file_value    ? "_files"
                                              : "");
                out << "'";
            }
        if (s.name == "completion")
            out << " \\\n                '1:shell:(bash zsh)'";
        else if (s.name != "lsp")
            out << " \\\n                '*:script:_files'";
        out << "\n            ;;\n";
    }
    out << "    esac\n"
           "}\n"
           "_kiv \"$@\"\n";
}

} // namespace

void add_completion(CLI::App &app, int &rc)
{
    auto shell = std::make_shared<std::string>();
    CLI::App *sub = app.add_subcommand(
        "completion", "Write the shell completion of kiv for bash or zsh (installed with the tool; "
                      "by hand: source <(kiv completion bash)).");
    sub->add_option("SHELL", *shell, "bash or zsh")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh"}));
    sub->callback([&app, shell, &rc] {
        const std::vector<subcommand_info> subs = describe(app);
        if (*shell == "bash")
            write_bash(std::cout, subs);
        else
            write_zsh(std::cout, subs);
        rc = EXIT_OK;
    });
}

} // namespace kivtool
