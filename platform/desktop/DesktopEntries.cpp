#include "platform/desktop/DesktopEntries.h"

#include "portable-core/DRAVLog.h"

#if TIDEMIX_HAVE_DESKTOP

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace tidemix::platform::desktop
{
namespace
{
// Owns one reference of a GObject.
template <typename T>
class GObjectRef
{
public:
    explicit GObjectRef(T* object = nullptr) : object_(object) {}
    ~GObjectRef()
    {
        if (object_ != nullptr)
        {
            g_object_unref(object_);
        }
    }
    GObjectRef(GObjectRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    GObjectRef(const GObjectRef&) = delete;
    GObjectRef& operator=(const GObjectRef&) = delete;
    GObjectRef& operator=(GObjectRef&& other) noexcept
    {
        std::swap(object_, other.object_);
        return *this;
    }

    T* get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

private:
    T* object_;
};

// Frees a GError and gives its message.
std::string TakeError(GError* error, const char* fallback)
{
    std::string message = error != nullptr && error->message != nullptr ? error->message : fallback;
    if (error != nullptr)
    {
        g_error_free(error);
    }
    return message;
}

std::string TakeString(char* text)
{
    std::string result = text != nullptr ? text : "";
    g_free(text);
    return result;
}

bool IsFile(const std::filesystem::path& path)
{
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

// The icon theme's file for a name: an absolute path as it is, else the
// largest picture of the fallback theme "hicolor", else the pixmaps folder.
std::string IconFile(const std::string& icon)
{
    if (icon.empty())
    {
        return {};
    }
    if (icon.front() == '/')
    {
        return IsFile(icon) ? icon : std::string();
    }
    std::vector<std::filesystem::path> dataDirs{g_get_user_data_dir()};
    for (const gchar* const* dir = g_get_system_data_dirs(); dir != nullptr && *dir != nullptr; ++dir)
    {
        dataDirs.emplace_back(*dir);
    }
    static const char* const kSizes[] = {"scalable", "512x512", "256x256", "128x128", "96x96",
                                         "64x64",    "48x48",   "32x32",   "24x24",   "16x16"};
    static const char* const kExtensions[] = {".png", ".svg", ".xpm"};
    for (const auto& dir : dataDirs)
    {
        for (const char* size : kSizes)
        {
            for (const char* extension : kExtensions)
            {
                const auto path = dir / "icons" / "hicolor" / size / "apps" / (icon + extension);
                if (IsFile(path))
                {
                    return path.string();
                }
            }
        }
    }
    for (const auto& dir : dataDirs)
    {
        for (const char* extension : kExtensions)
        {
            if (const auto path = dir / "pixmaps" / (icon + extension); IsFile(path))
            {
                return path.string();
            }
        }
    }
    return {};
}

std::string Lowercase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The entry "<identifier>.desktop", else the one whose program or window
// class has the identifier as its name (a running program is known by its
// binary's name when it gives no application id).
GObjectRef<GDesktopAppInfo> FindEntry(const std::string& identifier)
{
    if (identifier.empty() || identifier.find('/') != std::string::npos)
    {
        return GObjectRef<GDesktopAppInfo>();
    }
    for (const std::string& name : {identifier, Lowercase(identifier)})
    {
        if (GDesktopAppInfo* info = g_desktop_app_info_new((name + ".desktop").c_str()))
        {
            return GObjectRef<GDesktopAppInfo>(info);
        }
    }
    GList* all = g_app_info_get_all();
    GDesktopAppInfo* found = nullptr;
    for (GList* item = all; item != nullptr && found == nullptr; item = item->next)
    {
        if (!G_IS_DESKTOP_APP_INFO(item->data))
        {
            continue;
        }
        auto* info = G_DESKTOP_APP_INFO(item->data);
        const char* executable = g_app_info_get_executable(G_APP_INFO(info));
        const char* windowClass = g_desktop_app_info_get_startup_wm_class(info);
        const std::string program =
            executable != nullptr ? std::filesystem::path(executable).filename().string() : std::string();
        if (program == identifier || (windowClass != nullptr && windowClass == identifier))
        {
            found = G_DESKTOP_APP_INFO(g_object_ref(info));
        }
    }
    g_list_free_full(all, g_object_unref);
    return GObjectRef<GDesktopAppInfo>(found);
}

InstalledApplication Describe(GDesktopAppInfo* info, const std::string& identifier)
{
    InstalledApplication application;
    application.identifier = identifier;
    const char* name = g_app_info_get_name(G_APP_INFO(info));
    application.name = name != nullptr ? name : identifier;
    const char* file = g_desktop_app_info_get_filename(info);
    application.entryPath = file != nullptr ? file : "";
    application.iconPath = IconFile(TakeString(g_desktop_app_info_get_string(info, "Icon")));
    return application;
}

class PixbufIcon final : public ApplicationIcon
{
public:
    explicit PixbufIcon(GdkPixbuf* pixbuf) : pixbuf_(pixbuf) {}

    int Width() const override { return gdk_pixbuf_get_width(pixbuf_.get()); }
    int Height() const override { return gdk_pixbuf_get_height(pixbuf_.get()); }

    std::vector<uint8_t> EncodePng(int width, int height, bool resize) const override
    {
        GObjectRef<GdkPixbuf> picture(GDK_PIXBUF(g_object_ref(pixbuf_.get())));
        if (resize && (width != Width() || height != Height()))
        {
            if (width <= 0 || height <= 0)
            {
                return {};
            }
            // The best of gdk-pixbuf's filters: icons are small and scaled rarely.
            GdkPixbuf* scaled = gdk_pixbuf_scale_simple(pixbuf_.get(), width, height, GDK_INTERP_HYPER);
            if (scaled == nullptr)
            {
                return {};
            }
            picture = GObjectRef<GdkPixbuf>(scaled);
        }
        GObjectRef<GdkPixbuf> rgba(gdk_pixbuf_add_alpha(picture.get(), FALSE, 0, 0, 0));
        gchar* buffer = nullptr;
        gsize size = 0;
        GError* error = nullptr;
        if (!rgba || !gdk_pixbuf_save_to_buffer(rgba.get(), &buffer, &size, "png", &error, nullptr))
        {
            DRAVLogPrintf(kDbgPrintLevelWarning, "icon: cannot encode PNG: %s",
                          TakeError(error, "no picture").c_str());
            return {};
        }
        std::vector<uint8_t> bytes(reinterpret_cast<uint8_t*>(buffer),
                                   reinterpret_cast<uint8_t*>(buffer) + size);
        g_free(buffer);
        return bytes;
    }

private:
    GObjectRef<GdkPixbuf> pixbuf_;
};
}  // namespace

std::optional<InstalledApplication> DesktopEntries::FindInstalled(const std::string& identifier)
{
    GObjectRef<GDesktopAppInfo> info = FindEntry(identifier);
    if (!info)
    {
        return std::nullopt;
    }
    return Describe(info.get(), identifier);
}

std::optional<InstalledApplication> DesktopEntries::ApplicationForUrl(const std::string& url)
{
    const size_t colon = url.find(':');
    if (colon == std::string::npos || colon == 0)
    {
        return std::nullopt;
    }
    GObjectRef<GAppInfo> handler(g_app_info_get_default_for_uri_scheme(url.substr(0, colon).c_str()));
    if (!handler || !G_IS_DESKTOP_APP_INFO(handler.get()))
    {
        return std::nullopt;
    }
    std::string identifier =
        g_app_info_get_id(handler.get()) != nullptr ? g_app_info_get_id(handler.get()) : "";
    if (const std::string suffix = ".desktop";
        identifier.size() > suffix.size() && identifier.ends_with(suffix))
    {
        identifier.resize(identifier.size() - suffix.size());
    }
    return Describe(G_DESKTOP_APP_INFO(handler.get()), identifier);
}

std::shared_ptr<ApplicationIcon> DesktopEntries::LoadIcon(const std::string& path, std::string* whyNot)
{
    GError* error = nullptr;
    GdkPixbuf* pixbuf = path.empty() ? nullptr : gdk_pixbuf_new_from_file(path.c_str(), &error);
    if (pixbuf == nullptr)
    {
        const std::string why = TakeError(error, "no icon file");
        if (whyNot != nullptr)
        {
            *whyNot = why;
        }
        return nullptr;
    }
    return std::make_shared<PixbufIcon>(pixbuf);
}

bool DesktopEntries::Launch(const std::string& identifier)
{
    GObjectRef<GDesktopAppInfo> info = FindEntry(identifier);
    if (!info)
    {
        DRAVLogPrintf(kDbgPrintLevelWarning, "applications: no desktop entry for \"%s\"", identifier.c_str());
        return false;
    }
    GError* error = nullptr;
    if (!g_app_info_launch(G_APP_INFO(info.get()), nullptr, nullptr, &error))
    {
        DRAVLogPrintf(kDbgPrintLevelWarning, "applications: cannot launch \"%s\": %s", identifier.c_str(),
                      TakeError(error, "unknown error").c_str());
        return false;
    }
    return true;
}

}  // namespace tidemix::platform::desktop

#else  // no GIO and gdk-pixbuf in this build

namespace tidemix::platform::desktop
{
std::optional<InstalledApplication> DesktopEntries::FindInstalled(const std::string&)
{
    return std::nullopt;
}
std::optional<InstalledApplication> DesktopEntries::ApplicationForUrl(const std::string&)
{
    return std::nullopt;
}
std::shared_ptr<ApplicationIcon> DesktopEntries::LoadIcon(const std::string&, std::string* whyNot)
{
    if (whyNot != nullptr)
    {
        *whyNot = "this build decodes no icons (gdk-pixbuf was not found)";
    }
    return nullptr;
}
bool DesktopEntries::Launch(const std::string&)
{
    return false;
}
}  // namespace tidemix::platform::desktop

#endif
