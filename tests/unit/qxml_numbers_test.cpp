// Number text: the reply reader's conversion and the utility layer's strtoq forms.
#include <gtest/gtest.h>

#include <string>

#include "common_cpp/kvfError.h"
#include "common/lbString.h"
#include "common_cpp/qXML.h"

using QXML::XML_UTF8ToQUAD;
using QXML::XML_UTF8ToSQUAD;

namespace {

int toQuad(const std::string& text, uint64_t* number, const char** next = nullptr) {
  return XML_UTF8ToQUAD(text.data(), text.data() + text.size() - 1, number, next);
}

}  // namespace

TEST(NumberText, ReplyValues) {
  uint64_t n = 7;
  for (const auto& [text, value] :
       {std::pair<std::string, uint64_t>{"  42  ", 42}, {"017", 15}, {"0x1f", 31}, {"abc", 0}, {"12ab", 12}}) {
    EXPECT_EQ(zOK, toQuad(text, &n)) << text;
    EXPECT_EQ(value, n) << text;
  }

  n = 7;
  EXPECT_EQ(zERR_BAD_TRANSFORMATION, toQuad(" \n\t ", &n));
  EXPECT_EQ(zERR_BUFFER_TOO_SMALL, toQuad(std::string(80, '1'), &n));
  EXPECT_EQ(7u, n);
  EXPECT_EQ(zOK, toQuad(std::string(79, '0'), &n));
  const char* text = "5";
  EXPECT_EQ(zERR_BAD_TRANSFORMATION, XML_UTF8ToQUAD(text + 1, text, &n, nullptr));

  const char* next = nullptr;
  std::string two = " 12 34";
  EXPECT_EQ(zOK, toQuad(two, &n, &next));
  EXPECT_EQ(two.data() + 3, next);
}

TEST(NumberText, SignedFormKeepsTheUnsignedBits) {
  int64_t n = 0;
  std::string minus = "-5";
  EXPECT_EQ(zOK, XML_UTF8ToSQUAD(minus.data(), minus.data() + 1, &n, nullptr));
  EXPECT_EQ(-5, n);
  std::string max = "18446744073709551615";
  EXPECT_EQ(zOK, XML_UTF8ToSQUAD(max.data(), max.data() + max.size() - 1, &n, nullptr));
  EXPECT_EQ(-1, n);
}

TEST(NumberText, StrtoqClampsBySign) {
  EXPECT_EQ(INT64_MAX, KVF::LB_strtoq("9223372036854775808", nullptr, 10));
  EXPECT_EQ(INT64_MIN, KVF::LB_strtoq("-9223372036854775808", nullptr, 10));
  EXPECT_EQ(INT64_MIN, KVF::LB_strtoq("-9223372036854775809", nullptr, 10));
  EXPECT_EQ(INT64_MAX, KVF::LB_strtoq("99999999999999999999", nullptr, 10));
  EXPECT_EQ(-42, KVF::LB_strtoq(" \t-42", nullptr, 0));
  EXPECT_EQ(UINT64_MAX, KVF::LB_strtouq("99999999999999999999", nullptr, 10));
  EXPECT_EQ(UINT64_MAX - 4, KVF::LB_strtouq("-5", nullptr, 10));
  // The overflow test only notices wrap-around below the previous value.
  EXPECT_EQ(11553255926290448384u, KVF::LB_strtouq("30000000000000000000", nullptr, 10));
}

TEST(NumberText, BasesAndStopPointer) {
  char* stop = nullptr;
  const char* text = "  0x1Fg";
  EXPECT_EQ(31u, KVF::LB_strtouq(text, &stop, 0));
  EXPECT_EQ(text + 6, stop);
  EXPECT_EQ(31u, KVF::LB_strtouq("0X1f", nullptr, 16));
  EXPECT_EQ(0u, KVF::LB_strtouq("0x1f", nullptr, 10));
  EXPECT_EQ(35u, KVF::LB_strtouq("z", nullptr, 36));
  EXPECT_EQ(5u, KVF::LB_strtouq("101", nullptr, 2));
  EXPECT_EQ(0u, KVF::LB_strtouq("101", &stop, 37));
  EXPECT_EQ(0u, KVF::LB_strtouq("101", nullptr, 1));

  const char* none = " +x";
  EXPECT_EQ(0u, KVF::LB_strtouq(none, &stop, 10));
  EXPECT_EQ(none, stop);
  EXPECT_EQ(37, KVF::qradix_value(0xe9));  // no digit of any base
}

// The exact range check behind refusing numbers that do not fit their field:
// it must also catch digit strings whose conversion wraps to a larger value,
// which the conversion's own overflow test lets through.
TEST(LbString, FitsDecimalIsExactAtEveryWidth) {
  EXPECT_TRUE(KVF::LB_fitsDecimal("18446744073709551615", UINT64_MAX));
  EXPECT_FALSE(KVF::LB_fitsDecimal("18446744073709551616", UINT64_MAX));
  EXPECT_FALSE(KVF::LB_fitsDecimal("27670116110564327424", UINT64_MAX));
  EXPECT_FALSE(KVF::LB_fitsDecimal("1234567890123456789012345", UINT64_MAX));
  EXPECT_TRUE(KVF::LB_fitsDecimal(" +4294967295x", UINT32_MAX));
  EXPECT_FALSE(KVF::LB_fitsDecimal("4294967296", UINT32_MAX));
  EXPECT_TRUE(KVF::LB_fitsDecimal("-2147483647", INT32_MAX));
  EXPECT_FALSE(KVF::LB_fitsDecimal("2147483648", INT32_MAX));
  EXPECT_TRUE(KVF::LB_fitsDecimal("", 0));
}
