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
    BundleFilesOnly() { changeCount(1); }
    ~BundleFilesOnly() { changeCount(-1); }
    BundleFilesOnly(const BundleFilesOnly&) = delete;
    BundleFilesOnly& operator=(const BundleFilesOnly&) = delete;

    static bool isInForce();

private:
    static void changeCount(int change);
};

} // namespace tarnix_cmn_4_4

#endif
