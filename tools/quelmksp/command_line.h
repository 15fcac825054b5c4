// The arguments of one subcommand: its options, its operands and whether
// help was asked for.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

struct CommandSyntax {
    const char* name;
    const char* help;
    std::vector<std::string> flags;
    std::vector<std::string> valued;
    size_t minOperands;
    size_t maxOperands;
};

struct ParsedCommand {
    bool help = false;
    std::set<std::string> flags;
    std::map<std::string, std::string> values;
    std::vector<std::string> operands;

    bool Has(const std::string& flag) const { return flags.count(flag) != 0; }
    std::string Value(const std::string& option, const std::string& fallback) const;
    // The operand at index, or fallback when it was left out.
    std::string Operand(size_t index, const std::string& fallback = "") const;
};

// Throws UsageError for an unknown option, a missing option value or a
// wrong number of operands. "--help" anywhere wins over everything else.
ParsedCommand ParseCommand(const CommandSyntax& syntax, const std::vector<std::string>& args);
