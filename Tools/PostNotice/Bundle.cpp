#include "Tools/PostNotice/Bundle.h"

#include "Contract/Brand.h"
#include "Formats/File.h"
#include "Formats/PropertyList.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>

namespace {

// Where a package of that name puts its bundle: packages install this command into <prefix>/bin, and bundles
// below <prefix>/lib.
std::string bundleOfPackage(const std::string &package) {
    const std::unique_ptr<char, decltype(&std::free)> self(::realpath("/proc/self/exe", nullptr), &std::free);
    const std::string path = self ? self.get() : "/usr/bin/post-notice";
    const auto folder = path.substr(0, path.rfind('/'));
    return folder.substr(0, folder.rfind('/')) + "/lib/" + package + "/NoticeAgent.app";
}

} // namespace

std::string bundleNamed(const std::string &name) {
    const bool isPackage
        = !name.empty() && name.find('/') == std::string::npos && ::access(name.c_str(), F_OK) != 0;
    return isPackage ? bundleOfPackage(name) : name;
}

NoticeClient::Brand brandOfBundle(const std::string &bundle) {
    using namespace Contract::Brand;
    const auto path
        = bundle + "/Contents/Resources/" + std::string(settingsResource) + '.' + std::string(settingsType);
    // As the agent does: without a file that it can read, its message's name begins with nothing.
    const auto bytes = Formats::readFile(path);
    const auto settings = bytes ? Formats::parsePropertyList(*bytes) : std::nullopt;
    if (!settings)
        return { {}, {} };
    return { Formats::stringOf(*settings, LogFolderName).value_or(std::string(defaultLogFolderName)),
        Formats::stringOf(*settings, Vendor).value_or(std::string(defaultVendor)) };
}
