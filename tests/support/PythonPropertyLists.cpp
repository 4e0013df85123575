#include "support/PythonPropertyLists.h"

#include "support/ExternalTools.h"

#include <gtest/gtest.h>

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

Data fromHex(const std::string& hex) {
    Data bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

}  // namespace

std::vector<Data> pythonPropertyLists(const std::vector<std::string>& expressions,
                                      const std::string& format) {
    std::string script = kPrelude;
    script += "values = [\n";
    for (const std::string& expression : expressions) {
        script += "    " + expression + ",\n";
    }
    script += "]\nfor value in values:\n";
    script += "    print(plistlib.dumps(value, fmt=plistlib." + format + ").hex())\n";
    CommandResult result = runPython(script);
    if (result.exitCode != 0) {
        ADD_FAILURE() << "Python could not write the property lists:\n" << result.output;
        return {};
    }
    std::vector<Data> lists;
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) {
        lists.push_back(fromHex(line));
    }
    return lists.size() == expressions.size() ? lists : std::vector<Data>{};
}

}  // namespace tarvik::testsupport
