#include "Tools/PostNotice/Bundle.h"

#include "Contract/Brand.h"
#include "Tools/PostNotice/PropertyListFile.h"

#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string_view>

namespace {

// Where a package of that name puts its bundle: packages install this command into <prefix>/bin, and bundles
// below <prefix>/lib.
std::string bundleOfPackage(const std::string &package) {
    const std::unique_ptr<char, decltype(&std::free)> self(::realpath("/proc/self/exe", nullptr), &std::free);
    const std::string path = self ? self.get() : "/usr/bin/post-notice";
    const auto folder = path.substr(0, path.rfind('/'));
    return folder.substr(0, folder.rfind('/')) + "/lib/" + package + "/NoticeAgent.app";
}

std::string word(
    const NoticeClient::Dictionary &settings, std::string_view key, std::string_view valueByDefault) {
    const auto found = settings.find(std::string(key));
    const auto *text = found == settings.end() ? nullptr : std::get_if<std::string>(&found->second);
    return text ? *text : std::string(valueByDefault);
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
    if (::access(path.c_str(), F_OK) != 0)
        return { {}, {} };
    const auto settings = readPropertyList("--start", path);
    return { word(settings, LogFolderName, defaultLogFolderName), word(settings, Vendor, defaultVendor) };
}
