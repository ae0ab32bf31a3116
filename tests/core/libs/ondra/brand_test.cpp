#include "ondra/brand.h"

#include <gtest/gtest.h>
#include <QFile>
#include <QJsonDocument>
#include <QTemporaryDir>

namespace {

using ondra::device::Brand;
using ondra::device::parse_brand_code;
using ondra::device::parse_brand_field;

/// Text of the one key "k" of a JSON object.
std::string field(const char* json) {
    const QJsonDocument document = QJsonDocument::fromJson(json);
    EXPECT_TRUE(document.isObject()) << json;
    return parse_brand_field(QStringLiteral("k"), document.object());
}

Brand brand_of(const char* content) {
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("brand.json"));
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(content);
    file.close();
    return ondra::device::read_brand_file(path);
}

void expect_defaults(const Brand& brand) {
    EXPECT_EQ(brand.short_name, "Recorder");
    EXPECT_EQ(brand.long_name, "Torvex ArtNet Recorder");
    EXPECT_EQ(brand.manufacturer, "Torvex");
    EXPECT_EQ(brand.model, "Z-900");
    EXPECT_EQ(brand.modules, "recorder");
    EXPECT_NE(brand.oem_id, 0);
    EXPECT_NE(brand.manufacturer_id, 0);
    EXPECT_EQ(brand.oem_id, Brand().oem_id);
    EXPECT_EQ(brand.manufacturer_id, Brand().manufacturer_id);
}

TEST(BrandTest, WithoutSettingsOfItsOwnABuildHasTheFieldsCodesForUnknownAndForPrototypes) {
    EXPECT_EQ(Brand().oem_id, 0x00FF);
    EXPECT_EQ(Brand().manufacturer_id, 0x7FF0);
}

TEST(BrandFieldTest, StringGivesItsUtf8Text) {
    EXPECT_EQ(field(R"({"k": "Torvex"})"), "Torvex");
    EXPECT_EQ(field(R"({"k": "B\u00fchne"})"), "B\xC3\xBChne");
}

TEST(BrandFieldTest, NumberIsCutToAnInteger) {
    EXPECT_EQ(field(R"({"k": 5})"), "5");
    EXPECT_EQ(field(R"({"k": 3.7})"), "3");
    EXPECT_EQ(field(R"({"k": -3.7})"), "-3");
    EXPECT_EQ(field(R"({"k": 0.9})"), "0");
}

TEST(BrandFieldTest, NumberOutside32BitsIsHeldAtTheEnd) {
    EXPECT_EQ(field(R"({"k": 2147483647})"), "2147483647");
    EXPECT_EQ(field(R"({"k": 2147483648})"), "2147483647");
    EXPECT_EQ(field(R"({"k": 1e300})"), "2147483647");
    EXPECT_EQ(field(R"({"k": -1e300})"), "-2147483648");
}

TEST(BrandFieldTest, ArrayIsJoinedByBars) {
    EXPECT_EQ(field(R"({"k": ["a", "b", "c"]})"), "a|b|c");
    EXPECT_EQ(field(R"({"k": ["a"]})"), "a");
    EXPECT_EQ(field(R"({"k": []})"), "");
}

TEST(BrandFieldTest, ElementThatIsNoStringIsEmpty) {
    EXPECT_EQ(field(R"({"k": ["a", 5, "c", null, ["x"]]})"), "a||c||");
    EXPECT_EQ(field(R"({"k": [5, "b"]})"), "|b");
}

TEST(BrandFieldTest, AbsentKeyAndOtherTypesAreEmpty) {
    EXPECT_EQ(field(R"({})"), "");
    EXPECT_EQ(field(R"({"K": "other"})"), "");
    EXPECT_EQ(field(R"({"k": true})"), "");
    EXPECT_EQ(field(R"({"k": null})"), "");
    EXPECT_EQ(field(R"({"k": {"k": "x"}})"), "");
}

TEST(BrandCodeTest, LeadingDigitsCount) {
    EXPECT_EQ(parse_brand_code("255"), 255);
    EXPECT_EQ(parse_brand_code("12abc34"), 12);
    EXPECT_EQ(parse_brand_code("007"), 7);
    EXPECT_EQ(parse_brand_code("0x10"), 0);
}

TEST(BrandCodeTest, WithoutLeadingDigitsItIsZero) {
    for (const char* text : {"", "abc", "-5", "+5", " 5"}) {
        EXPECT_EQ(parse_brand_code(text), 0) << text;
    }
}

TEST(BrandCodeTest, LowSixteenBitsAreKept) {
    EXPECT_EQ(parse_brand_code("65535"), 65535);
    EXPECT_EQ(parse_brand_code("65536"), 0);
    EXPECT_EQ(parse_brand_code("65541"), 5);
    EXPECT_EQ(parse_brand_code("18446744073709551614"), 0xFFFE);
}

TEST(BrandCodeTest, NumberPast64BitsIsHeldAtTheEnd) {
    EXPECT_EQ(parse_brand_code("18446744073709551615"), 0xFFFF);
    EXPECT_EQ(parse_brand_code("18446744073709551616"), 0xFFFF);
    EXPECT_EQ(parse_brand_code("99999999999999999999999999999999"), 0xFFFF);
}

TEST(BrandFileTest, EveryKeyIsTaken) {
    const Brand brand = brand_of(R"({"short_name": "S", "long_name": "L", "manufacturer": "M", "model": "X",
        "oem_id": "1234", "manufacturer_id": 4321, "modules": ["a", "b", "c"]})");
    EXPECT_EQ(brand.short_name, "S");
    EXPECT_EQ(brand.long_name, "L");
    EXPECT_EQ(brand.manufacturer, "M");
    EXPECT_EQ(brand.model, "X");
    EXPECT_EQ(brand.oem_id, 1234);
    EXPECT_EQ(brand.manufacturer_id, 4321);
    EXPECT_EQ(brand.modules, "a|b|c");
}

TEST(BrandFileTest, MissingKeysEmptyTheirValues) {
    const Brand brand = brand_of(R"({"model": "X"})");
    EXPECT_EQ(brand.model, "X");
    EXPECT_EQ(brand.short_name, "");
    EXPECT_EQ(brand.long_name, "");
    EXPECT_EQ(brand.manufacturer, "");
    EXPECT_EQ(brand.modules, "");
    EXPECT_EQ(brand.oem_id, 0);
    EXPECT_EQ(brand.manufacturer_id, 0);
}

TEST(BrandFileTest, NumbersServeAsModulesAndCodes) {
    const Brand brand = brand_of(R"({"modules": 5, "oem_id": 65541, "manufacturer_id": -1})");
    EXPECT_EQ(brand.modules, "5");
    EXPECT_EQ(brand.oem_id, 5);
    EXPECT_EQ(brand.manufacturer_id, 0);
}

TEST(BrandFileTest, UnusableFileKeepsEveryDefault) {
    for (const char* content : {"[]", R"([{"model": "X"}])", "", "not JSON", R"({"model": "X")", "5"}) {
        SCOPED_TRACE(content);
        expect_defaults(brand_of(content));
    }
}

TEST(BrandFileTest, AbsentFileAndDirectoryKeepEveryDefault) {
    const QTemporaryDir directory;
    expect_defaults(ondra::device::read_brand_file(directory.filePath(QStringLiteral("absent.json"))));
    expect_defaults(ondra::device::read_brand_file(directory.path()));
}

}  // namespace
