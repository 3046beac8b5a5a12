#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <vector>

#include "virtual_slot.h"
#include "zam_client_certs_downloader_proxy.h"
#include "zam_connector/zam_connector.h"
#include "zam_file_downloader_proxy.h"
#include "zam_locale_info.h"

// What a client's compiled code relies on, of the downloaders and the locale tables.

namespace zam_connector {
namespace {

using namespace zam_locale;

// Slots 0 and 1 are those of the destructor, which the interfaces declare first.

TEST(VirtualSlots, OfTheDownloadersStandInOrder) {
    EXPECT_EQ(SlotOf(&IZamFileDownloader::GetFileInfo), 2);
    EXPECT_EQ(SlotOf(&IZamFileDownloader::GetFileChunk), 3);
    EXPECT_EQ(SlotOf(&proxy::ZamFileDownloaderProxy::GetFileInfo), 2);
    EXPECT_EQ(SlotOf(&proxy::ZamFileDownloaderProxy::GetFileChunk), 3);
    EXPECT_EQ(SlotOf(&IZamClientCertsDownloader::GetClientCertificates), 2);
    EXPECT_EQ(SlotOf(&proxy::ZamClientCertsDownloaderProxy::GetClientCertificates), 2);
}

TEST(VirtualSlots, OfTheLocaleTablesStandInOrder) {
    EXPECT_EQ(SlotOf(&IZamLocaleFactory::CreateZamLocaleInfo), 2);
    EXPECT_EQ(SlotOf(&IZamLocaleFactory::CreateZamLocationInfo), 3);
    EXPECT_EQ(SlotOf(&MicrosoftZamLocaleFactory::CreateZamLocaleInfo), 2);
    EXPECT_EQ(SlotOf(&MicrosoftZamLocaleFactory::CreateZamLocationInfo), 3);
    EXPECT_EQ(SlotOf(&IZamLocaleInfo::DefaultLocale), 2);
    EXPECT_EQ(SlotOf(&IZamLocaleInfo::Locale), 3);
    EXPECT_EQ(SlotOf(&IZamLocaleInfo::LocaleContainer), 4);
    EXPECT_EQ(SlotOf(&ZamLocaleInfo::DefaultLocale), 2);
    EXPECT_EQ(SlotOf(&ZamLocaleInfo::Locale), 3);
    EXPECT_EQ(SlotOf(&ZamLocaleInfo::LocaleContainer), 4);
    EXPECT_EQ(SlotOf(&IZamLocationInfo::HasLocationInfo), 2);
    EXPECT_EQ(SlotOf(&IZamLocationInfo::RemoveLocationInfo), 3);
    EXPECT_EQ(SlotOf(&MicrosoftLocationInfo::HasLocationInfo), 2);
    EXPECT_EQ(SlotOf(&MicrosoftLocationInfo::RemoveLocationInfo), 3);
}

// The exact types, `noexcept` included: the downloaders promise it, the locale tables do not.
static_assert(std::is_same_v<decltype(&IZamFileDownloader::GetFileInfo),
                             int (IZamFileDownloader::*)(FileInfoParams, FileInfo&) noexcept>);
static_assert(std::is_same_v<decltype(&IZamFileDownloader::GetFileChunk),
                             int (IZamFileDownloader::*)(FileChunkParams, FileChunk&) noexcept>);
static_assert(std::is_same_v<decltype(&IZamClientCertsDownloader::GetClientCertificates),
                             int (IZamClientCertsDownloader::*)(
                                 const ClientCertParams&, std::vector<ClientCertInfo>&) noexcept>);
static_assert(std::is_same_v<decltype(&IZamLocaleFactory::CreateZamLocaleInfo),
                             std::unique_ptr<IZamLocaleInfo> (IZamLocaleFactory::*)() const>);
static_assert(std::is_same_v<decltype(&IZamLocaleFactory::CreateZamLocationInfo),
                             std::unique_ptr<IZamLocationInfo> (IZamLocaleFactory::*)() const>);
static_assert(std::is_same_v<decltype(&IZamLocaleInfo::DefaultLocale),
                             std::optional<ZamLocale> (IZamLocaleInfo::*)() const>);
static_assert(std::is_same_v<decltype(&IZamLocaleInfo::Locale),
                             std::optional<ZamLocale> (IZamLocaleInfo::*)(std::string_view) const>);
static_assert(std::is_same_v<decltype(&IZamLocaleInfo::LocaleContainer),
                             std::vector<ZamLocale> (IZamLocaleInfo::*)() const>);
static_assert(std::is_same_v<decltype(&IZamLocationInfo::HasLocationInfo),
                             bool (IZamLocationInfo::*)(LocaleIdType) const>);
static_assert(std::is_same_v<decltype(&IZamLocationInfo::RemoveLocationInfo),
                             LocaleIdType (IZamLocationInfo::*)(LocaleIdType) const>);
static_assert(std::is_same_v<LocaleIdType, std::uint32_t>);

template <typename Interface>
constexpr bool kIsInterface =
    std::is_abstract_v<Interface>&& std::has_virtual_destructor_v<Interface> &&
    sizeof(Interface) == sizeof(void*);
static_assert(kIsInterface<IZamFileDownloader>);
static_assert(kIsInterface<IZamClientCertsDownloader>);
static_assert(kIsInterface<IZamLocaleFactory>);
static_assert(kIsInterface<IZamLocaleInfo>);
static_assert(kIsInterface<IZamLocationInfo>);

// The file downloader has its transport besides; what has no data is its table alone.
static_assert(sizeof(proxy::ZamFileDownloaderProxy) == 5 * sizeof(void*));
static_assert(sizeof(proxy::ZamClientCertsDownloaderProxy) == 4 * sizeof(void*));
static_assert(sizeof(MicrosoftLocationInfo) == sizeof(void*));
static_assert(sizeof(MicrosoftZamLocaleFactory) == sizeof(void*));

}  // namespace
}  // namespace zam_connector
