#include "command_line.h"

#include <algorithm>

#include "client_error.h"

namespace {

bool Contains(const std::vector<std::string>& list, const std::string& item) {
    return std::find(list.begin(), list.end(), item) != list.end();
}

}  // namespace

std::string ParsedCommand::Value(const std::string& option, const std::string& fallback) const {
    auto found = values.find(option);
    return found == values.end() ? fallback : found->second;
}

std::string ParsedCommand::Operand(size_t index, const std::string& fallback) const {
    return index < operands.size() ? operands[index] : fallback;
}

ParsedCommand ParseCommand(const CommandSyntax& syntax, const std::vector<std::string>& args) {
    ParsedCommand parsed;
    if (Contains(args, "--help") || Contains(args, "-h")) {
        parsed.help = true;
        return parsed;
    }
    bool optionsEnded = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        // A lone "-" names stdin, so it is an operand like a file name.
        if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
            parsed.operands.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        std::string name = arg;
        std::string value;
        size_t equals = arg.find('=');
        bool inlineValue = equals != std::string::npos;
        if (inlineValue) {
            name = arg.substr(0, equals);
            value = arg.substr(equals + 1);
        }
        if (Contains(syntax.flags, name) && !inlineValue) {
            parsed.flags.insert(name);
        } else if (Contains(syntax.valued, name)) {
            if (!inlineValue) {
                if (i + 1 >= args.size()) throw UsageError(name + " needs a value");
                value = args[++i];
            }
            parsed.values[name] = value;
        } else {
            throw UsageError("unknown option " + arg);
        }
    }
    // main names the command in front of the message already.
    if (parsed.operands.size() < syntax.minOperands) throw UsageError("missing operand");
    if (parsed.operands.size() > syntax.maxOperands)
        throw UsageError("unexpected operand '" + parsed.operands[syntax.maxOperands] + "'");
    return parsed;
}
