#include "support/PythonPropertyLists.h"

#include "support/ExternalTools.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>

namespace tarvik::testsupport {

namespace {

constexpr const char* kPrelude = R"(import datetime, plistlib, sys
from plistlib import UID

# plistlib writes nested values recursively.
sys.setrecursionlimit(100000)

def archive(objects, root=UID(1)):
    return {'$archiver': 'NSKeyedArchiver', '$version': 100000, '$top': {'root': root},
            '$objects': objects}

def cls(name, *superclasses):
    return {'$classname': name, '$classes': [name, *superclasses, 'NSObject']}

def nested(levels, leaf):
    for _ in range(levels):
        leaf = [leaf]
    return leaf

)";

}  // namespace

std::vector<Data> pythonPropertyLists(const std::vector<std::string>& expressions,
                                      const std::string& format) {
    std::string script = kPrelude;
    script += "values = [\n";
    for (const std::string& expression : expressions) {
        script += "    " + expression + ",\n";
    }
    script += "]\nfor value in values:\n";
    script += "    print(*plistlib.dumps(value, fmt=plistlib." + format + "))\n";
    CommandResult result = runPython(script);
    if (result.exitCode != 0) {
        ADD_FAILURE() << "Python could not write the property lists:\n" << result.output;
        return {};
    }
    std::vector<Data> lists;
    std::istringstream lines(result.output);
    // One line per property list, its bytes as decimal numbers.
    for (std::string line; std::getline(lines, line);) {
        std::istringstream numbers(line);
        lists.emplace_back(std::istream_iterator<int>(numbers), std::istream_iterator<int>());
    }
    return lists.size() == expressions.size() ? lists : std::vector<Data>{};
}

}  // namespace tarvik::testsupport
