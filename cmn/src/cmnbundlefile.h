// SPDX-License-Identifier: LicenseRef-Tarnix
// Which bundles the catalogs of ICU open for a lookup with a list of languages.
#ifndef TARNIX_CMNBUNDLEFILE_H
#define TARNIX_CMNBUNDLEFILE_H

namespace tarnix_cmn_4_4
{

// While one exists, init of the calling thread's CCmnIcuMessageCatalog opens no bundle for a
// language that has no file of its own. ICU would remember each name that it has been asked for
// until the process ends, and the names can come from untrusted input. Init is virtual, and has no
// argument for it.
class BundleFilesOnly
{
public:
    BundleFilesOnly() : m_Outer(exchange(true)) {}
    ~BundleFilesOnly() { exchange(m_Outer); }
    BundleFilesOnly(const BundleFilesOnly&) = delete;
    BundleFilesOnly& operator=(const BundleFilesOnly&) = delete;

    static bool isInForce();

private:
    static bool exchange(bool isInForce);

    const bool m_Outer; // another object may exist already
};

} // namespace tarnix_cmn_4_4

#endif
