#include "scanlib/json_writer.hpp"

#include <gtest/gtest.h>

#include <limits>

using scanlib::json_writer;

TEST(json_writer, separates_members_and_elements) {
    json_writer w;
    w.begin_object()
        .member("a", 1.5)
        .member("b", std::uint32_t{4294967295})
        .member("c", std::int32_t{-1});
    w.array("d", std::vector<float>{0.1F, 2.0F}).member("e", std::string_view("x")).end_object();
    EXPECT_EQ(w.text(), R"({"a":1.5,"b":4294967295,"c":-1,"d":[0.100000001,2],"e":"x"})");
}

TEST(json_writer, double_has_17_digits) {
    json_writer w;
    w.begin_array().value(0.1).value(1e-300).value(1.9073486328125e-13).end_array();
    EXPECT_EQ(w.text(), "[0.10000000000000001,1e-300,1.9073486328124999e-13]");
}

TEST(json_writer, empty_array_is_an_empty_text) {
    json_writer w;
    w.begin_object().array("a", std::vector<double>{}).member("b", 1.0).end_object();
    EXPECT_EQ(w.text(), R"({"a":"","b":1})");
}

TEST(json_writer, what_is_no_number_in_json_is_a_text) {
    json_writer w;
    const double inf = std::numeric_limits<double>::infinity();
    w.begin_array()
        .value(std::numeric_limits<double>::quiet_NaN())
        .value(inf)
        .value(-inf)
        .end_array();
    EXPECT_EQ(w.text(), R"(["nan","inf","-inf"])");
}

TEST(json_writer, broken_utf8_is_taken_as_single_bytes) {
    json_writer w;
    w.begin_array();
    w.value(std::string_view("\xF0\x9F\x98\x80"))
        .value(std::string_view("\xC0\x80\xED\xA0\x80"))
        .end_array();
    EXPECT_EQ(w.text(), "[\"\xF0\x9F\x98\x80\",\"\\u00c0\\u0080\\u00ed\\u00a0\\u0080\"]");
}
