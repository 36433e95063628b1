#include "agent/cli/Confirm.h"

#include <cstdio>
#include <iostream>

#include "agent/cli/Command.h"
#include "agent/cli/Prompt.h"

namespace agent {

bool Confirm(const std::string& question) {
    if (!CanAsk()) {
        throw CWrongUseExc("Nothing is deleted without --yes: nobody is at a terminal to confirm it");
    }
    std::fflush(stdout);
    std::fprintf(stderr, "%s Type 'yes' to go on: ", question.c_str());
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "yes";
}

}  // namespace agent
