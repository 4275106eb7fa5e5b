#include "accounts.h"

#include <security/pam_appl.h>

#include <dlfcn.h>
#include <grp.h>
#include <pwd.h>
#include <shadow.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

namespace
{

std::string g_directory; // with a slash at the end; empty: the system's accounts

template <typename Function>
Function* systems(const char* name, Function*)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File open(const char* name)
{
    return {std::fopen((g_directory + name).c_str(), "re"), std::fclose};
}

template <typename Entry>
int find(const File& file, int (*next)(std::FILE*, Entry*, char*, std::size_t, Entry**),
         char* Entry::*key, const std::string& name, Entry* entry, char* buffer, std::size_t size,
         Entry** found)
{
    int error = 0;
    while ((error = next(file.get(), entry, buffer, size, found)) == 0 && entry->*key != name) {
    }
    return error == ENOENT ? 0 : error;
}

} // namespace

void useAccountsIn(const std::string& directory) { g_directory = directory + '/'; }

// These replace the functions of the system in the whole program, its libraries included.
#pragma GCC visibility push(default)
extern "C" {

int getpwnam_r(const char* name, passwd* entry, char* buffer, std::size_t size, passwd** found)
{
    static const auto real = systems("getpwnam_r", getpwnam_r);
    return g_directory.empty() ? real(name, entry, buffer, size, found)
                               : find(open("passwd"), fgetpwent_r, &passwd::pw_name, name, entry,
                                      buffer, size, found);
}

int getspnam_r(const char* name, spwd* entry, char* buffer, std::size_t size, spwd** found)
{
    static const auto real = systems("getspnam_r", getspnam_r);
    return g_directory.empty() ? real(name, entry, buffer, size, found)
                               : find(open("shadow"), fgetspent_r, &spwd::sp_namp, name, entry,
                                      buffer, size, found);
}

int getgrouplist(const char* user, gid_t first, gid_t* groups, int* count)
{
    static const auto real = systems("getgrouplist", getgrouplist);
    if (g_directory.empty())
        return real(user, first, groups, count);
    std::vector<gid_t> all{first};
    const File file = open("group");
    while (const group* entry = fgetgrent(file.get()))
        for (char** member = entry->gr_mem; *member != nullptr; ++member)
            if (user == std::string(*member))
                all.push_back(entry->gr_gid);
    const bool fits = all.size() <= static_cast<std::size_t>(*count);
    *count = static_cast<int>(all.size());
    if (fits)
        std::copy(all.begin(), all.end(), groups);
    return fits ? *count : -1;
}

int pam_start(const char* service, const char* user, const pam_conv* conversation,
              pam_handle_t** handle)
{
    const std::string services = g_directory + "pam.d";
    return pam_start_confdir(service, user, conversation,
                             g_directory.empty() ? nullptr : services.c_str(), handle);
}

} // extern "C"
