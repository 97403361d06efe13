#include <gtest/gtest.h>
#include <unicode/locid.h>

#include <set>
#include <thread>

#include "foundation/Text.h"

using namespace vornex;

TEST(Text, DigestsAndIdentifiers) {
  EXPECT_EQ(md5Hex("abc"), "900150983CD24FB0D6963F7D28E17F72");
  EXPECT_EQ(md5Hex(""), "D41D8CD98F00B204E9800998ECF8427E");
  std::set<std::string> identifiers;
  for (int i = 0; i < 100; ++i) {
    std::string uuid = makeUUID();
    ASSERT_EQ(uuid.size(), 36u);
    EXPECT_EQ(uuid.find_first_not_of("0123456789ABCDEF-"), std::string::npos);
    EXPECT_EQ(uuid[14], '4');
    EXPECT_NE(std::string("89AB").find(uuid[19]), std::string::npos);
    identifiers.insert(uuid);
  }
  EXPECT_EQ(identifiers.size(), 100u);
  EXPECT_EQ(randomHex(8).size(), 16u);
}

TEST(Text, FoldingIgnoresCaseAndComposition) {
  EXPECT_EQ(foldedText("Caf\xC3\x89"), foldedText("cafe\xCC\x81"));
  EXPECT_EQ(foldedText("STRASSE"), foldedText("stra\xC3\x9F"
                                              "e"));
  EXPECT_NE(foldedText("resume"), foldedText("r\xC3\xA9sum\xC3\xA9"));
  EXPECT_EQ(lowercased("MOV \xC3\x84"), "mov \xC3\xA4");
}

TEST(Text, InvalidUtf8IsSeenAndReplaced) {
  EXPECT_TRUE(isValidUtf8("\xF0\x9F\x8E\xAC"));
  for (const char* text : {"\xff", "\xC3", "\xED\xA0\x80", "\xC0\x80"}) {
    EXPECT_FALSE(isValidUtf8(text));
    EXPECT_TRUE(isValidUtf8(validUtf8(text)));
  }
  EXPECT_EQ(validUtf8("ok"), "ok");
}

TEST(Text, NoLanguageTakesDifferentPathsForOne) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale former;
  icu::Locale::setDefault(icu::Locale("th_TH"), status);
  std::thread([] {
    EXPECT_FALSE(localizedEqual("/a/b", "/ab"));
    EXPECT_FALSE(localizedEqual("/a b", "/ab"));
    EXPECT_FALSE(localizedEqual("/m/\xff", "/m/\xfe"));
    EXPECT_TRUE(localizedEqual("caf\xC3\xA9", "cafe\xCC\x81"));
  }).join();
  icu::Locale::setDefault(former, status);
}

TEST(Text, TrimsUnicodeWhiteSpace) {
  EXPECT_EQ(trimmedWhitespace(" \t\n a b \xC2\xA0\xE3\x80\x80"), "a b");
  EXPECT_EQ(trimmedWhitespace(" \n "), "");
}

TEST(Text, PercentCoding) {
  EXPECT_EQ(percentEncoded("a b/\xC3\xA9%", "/"), "a%20b/%C3%A9%25");
  EXPECT_EQ(percentDecoded("a%20b/%C3%A9%25"), "a b/\xC3\xA9%");
  EXPECT_EQ(percentDecoded("%zz%4"), "%zz%4");
  EXPECT_EQ(percentDecoded("%41"), "A");
  EXPECT_EQ(base64("ab"), "YWI=");
}
