// SPDX-License-Identifier: LicenseRef-Tarnix
// The start of a command as the calling user.
#include "spawn.h"

#include "errors.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <iterator>
#include <string_view>

namespace tarnix_platform
{

namespace
{

const char* pathOf(const ChildPlan& plan)
{
    constexpr std::string_view name = "PATH=";
    if (plan.inheritsEnvironment) {
        return std::getenv("PATH");
    }
    for (const std::string& variable : plan.environment) {
        if (std::string_view(variable).substr(0, name.size()) == name) {
            return variable.c_str() + name.size();
        }
    }
    return nullptr;
}

std::string searchPath(const ChildPlan& plan)
{
    if (const char* path = pathOf(plan)) {
        return path;
    }
    char path[PATH_MAX];
    ::confstr(_CS_PATH, path, sizeof path);
    return path;
}

} // namespace

std::vector<std::string> candidatesOf(const ChildPlan& plan)
{
    const std::string& program = plan.words.front();
    if (program.empty() || program.find('/') != std::string::npos) {
        return {program};
    }
    std::vector<std::string> candidates;
    const std::string path = searchPath(plan);
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find(':', begin), path.size());
        // An empty entry is the current directory.
        const std::string directory = end == begin ? "." : path.substr(begin, end - begin);
        candidates.push_back(directory + '/' + program);
        begin = end + 1;
    }
    return candidates;
}

std::vector<char*> pointersTo(const std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    std::transform(texts.begin(), texts.end(), std::back_inserter(pointers),
                   [](const std::string& text) { return const_cast<char*>(text.c_str()); });
    pointers.push_back(nullptr);
    return pointers;
}

bool failStep(const ChildPlan& plan, ChildStep step, int error)
{
    switch (step) {
    case ChildStep::create:
        return fail(error, "cannot create process");
    case ChildStep::closeDescriptors:
        return fail(error, "cannot close inherited descriptors (close_range; /proc/self/fd)");
    case ChildStep::setGroups:
        return fail(error, "cannot set groups of user");
    case ChildStep::enterDirectory:
        return fail(error, "cannot enter directory '" + plan.directory + "'");
    case ChildStep::execute:
        return fail(error, "cannot start program '" + plan.words.front() + "'");
    default:
        return fail(error, "cannot prepare child process");
    }
}

bool spawn(const ChildPlan& plan, Child& child)
{
    const std::vector<std::string> paths = candidatesOf(plan);
    const std::vector<char*> candidates = pointersTo(paths);
    const std::vector<char*> arguments = pointersTo(plan.words);
    const std::vector<char*> environment = pointersTo(plan.environment);
    ChildSide side;
    side.candidates = candidates.data();
    side.arguments = arguments.data();
    side.environment = plan.inheritsEnvironment ? environ : environment.data();
    side.mask = plan.mask;
    side.caller = plan.endsWithCaller ? ::getpid() : 0;
    side.directory = plan.directory.empty() ? nullptr : plan.directory.c_str();
    side.standard = plan.standard.data();
    return startChild(side, child) || failStep(plan, side.failedStep, side.error);
}

} // namespace tarnix_platform
