// SPDX-License-Identifier: LicenseRef-Tarnix
#include "accounts.h"

#include <security/pam_appl.h>

#include <grp.h>
#include <pwd.h>
#include <shadow.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>
#include <vector>

namespace
{

std::string g_directory = "/etc/";

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
    return find(open("passwd"), fgetpwent_r, &passwd::pw_name, name, entry, buffer, size, found);
}

int getspnam_r(const char* name, spwd* entry, char* buffer, std::size_t size, spwd** found)
{
    return find(open("shadow"), fgetspent_r, &spwd::sp_namp, name, entry, buffer, size, found);
}

int getgrouplist(const char* user, gid_t first, gid_t* groups, int* count)
{
    std::vector<gid_t> all{first};
    const File file = open("group");
    while (const group* entry = fgetgrent(file.get()))
        for (char** member = entry->gr_mem; *member != nullptr; ++member)
            if (user == std::string(*member))
                all.push_back(entry->gr_gid);
    const int room = std::exchange(*count, static_cast<int>(all.size()));
    std::copy_n(all.begin(), std::min(room, *count), groups);
    return *count <= room ? *count : -1;
}

int pam_start(const char* service, const char* user, const pam_conv* conversation,
              pam_handle_t** handle)
{
    const std::string services = g_directory + "pam.d";
    return pam_start_confdir(service, user, conversation, services.c_str(), handle);
}

} // extern "C"
