// Branch names: encoding, decoding, and the name that a connection keeps.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "base/xal_xid.h"
#include "dtm/xal_dtm.h"
#include "record/xal_record.h"
#include "scene.h"

using namespace fake;

namespace {

class Names : public Scene {
 protected:
  static std::string name_of(const XID &xid, const char *lrm_name = "L1") {
    char out[XA_NAME_SIZE];
    EXPECT_EQ(xa__dtm_encode_xid(&xid, lrm_name, out), out);
    return out;
  }
  std::string kept_name(const XID &xid) {
    dtm_name_branch(&conn, &xid);
    const std::string name = conn.xc_name;
    EXPECT_EQ(static_cast<size_t>(conn.xc_name_length), name.size());
    return name;
  }
};

TEST_F(Names, bytes_encode_in_groups_of_six_bits) {
  const std::pair<std::string, std::string> rows[] = {
      {"", ""},        {{"\x01\x02\x03"}, "0g83"},   {{"\x04\x05"}, "10k"},           {{"\x06"}, "1w"},
      {"abc", "om9z"}, {std::string(1, '\0'), "00"}, {{"\xff\xff\xff\xff"}, "#####M"}};
  for (const auto &[bytes, characters] : rows) {
    char out[100];
    EXPECT_EQ(xa__dtm_encode(bytes.data(), static_cast<int32_t>(bytes.size()), out),
              static_cast<int32_t>(characters.size()));
    EXPECT_EQ(out, characters);
  }
}

TEST_F(Names, names_clamp_lengths_and_never_show_a_sign) {
  XID too_long = make_xid(0, std::string(64, '\0'), std::string(64, '\0'));
  too_long.gtrid_length = 200;
  too_long.bqual_length = 65;
  XID negative = make_xid(0x1234, "\x01\x02\x03");
  negative.gtrid_length = -1;
  negative.bqual_length = -200;
  const struct {
    const char *name;
    XID xid;
    const char *lrm_name;
    std::string expected;
  } rows[] = {
      {"worked example", branch(), "L1", "1234_0g83_10k_:L1"},
      {"empty bqual", make_xid(0x1234, "\x01\x02\x03"), "L1", "1234_0g83__:L1"},
      {"readiness probe", dtm_check_xid, "L", "ffffffff_00_00_:L"},
      {"smallest formatID", make_xid(INT32_MIN, "\x06"), "L", "80000000_1w__:L"},
      {"negative lengths", negative, "L1", "1234___:L1"},
      {"lengths over 64", too_long, "L1",
       std::string("0_") + std::string(86, '0') + "_" + std::string(86, '0') + "_:L1"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(name_of(row.xid, row.lrm_name), row.expected) << row.name;
  }
  const XID longest = make_xid(-1, std::string(64, 'x'), std::string(64, 'y'));
  EXPECT_EQ(name_of(longest, "1234567890123456789012345678901").size(), 215U);
}

TEST_F(Names, characters_outside_the_alphabet_do_not_decode) {
  for (const char bad : {'_', '-', ' ', '\x80'}) {
    char out[100];
    const char characters[] = {'0', 'g', bad, '8', '\0'};
    EXPECT_EQ(xa__dtm_decode(characters, out), -1);
    EXPECT_EQ(take_log(), Lines{std::string("[xa__dtm_decode] Warning: Bad character in XID ") + bad});
  }
}

TEST_F(Names, decoding_undoes_encoding_for_every_length) {
  std::mt19937 random(1);
  for (size_t length = 0; length <= 64; ++length) {
    for (int repeat = 0; repeat < 20; ++repeat) {
      std::string bytes(length, '\0');
      for (char &byte : bytes) {
        byte = static_cast<char>(random());
      }
      char encoded[100];
      char decoded[100];
      const int32_t characters = xa__dtm_encode(bytes.data(), static_cast<int32_t>(length), encoded);
      const size_t left = length % 3;
      EXPECT_EQ(static_cast<size_t>(characters), length / 3 * 4 + (left == 0 ? 0 : left + 1));
      ASSERT_EQ(xa__dtm_decode(encoded, decoded), static_cast<int32_t>(length));
      EXPECT_EQ(std::string(decoded, length), bytes);
    }
  }
}

TEST_F(Names, the_kept_name_follows_every_change_of_the_xid) {
  const XID base = make_xid(0x12, "abc", "def");
  std::vector<XID> changed(7, base);
  changed[1].formatID = 0x13;
  changed[2].gtrid_length = 2;
  changed[3].bqual_length = 2;
  changed[4].gtrid_length = 4;
  changed[4].bqual_length = 2;  // the same bytes, split elsewhere
  changed[5].data[0] = 'x';
  changed[6].data[5] = 'x';
  for (const XID &first : changed) {
    for (const XID &second : changed) {
      EXPECT_EQ(kept_name(first), name_of(first));
      EXPECT_EQ(kept_name(second), name_of(second));
    }
  }
  XID null = base;
  null.formatID = -1;
  EXPECT_EQ(kept_name(null), name_of(null));
  conn.xc_name_length = 0;
  EXPECT_EQ(kept_name(null), name_of(null)) << "a null XID is encoded as well";
}

TEST_F(Names, bytes_behind_the_data_neither_count_nor_get_read) {
  XID one = branch();
  one.data[5] = 'x';
  EXPECT_TRUE(xid_equal(one, branch()));
  // A record that ends with its data, as a transaction manager may pass it.
  std::vector<char> tight(xid_size(one));
  memcpy(tight.data(), &one, tight.size());
  XID copy{};
  xid_copy(copy, *reinterpret_cast<const XID *>(tight.data()));
  EXPECT_EQ(kept_name(*reinterpret_cast<const XID *>(tight.data())), branch_name);
  EXPECT_TRUE(xid_equal(copy, branch()));
}

TEST_F(Names, equality_compares_length_words_and_refuses_null_xids) {
  const XID base = make_xid(5, std::string(64, 'g'), "b");
  XID longer = base;
  longer.gtrid_length = 70;
  XID null = base;
  null.formatID = -1;
  EXPECT_TRUE(xid_equal(base, base));
  EXPECT_FALSE(xid_equal(base, longer)) << "both count 64 bytes, but the words differ";
  EXPECT_FALSE(xid_equal(null, null));
}

}  // namespace
