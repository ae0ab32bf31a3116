// Fuzz target: the brand file, and the reading of its two codes.
#include <cstdlib>
#include <string>
#include <tuple>

#include "json_document.h"
#include "memory_file.h"
#include "ondra/brand.h"
#include "target.h"

namespace fuzz {

namespace {

using ondra::device::Brand;

auto all_of(const Brand& brand) {
    return std::tie(brand.short_name, brand.long_name, brand.manufacturer, brand.model, brand.oem_id,
                    brand.manufacturer_id, brand.modules);
}

JsonShape brand_shape() {
    const JsonShape text = text_shape({"", "a", "X", "lamp|desk"});
    const JsonShape code = number_shape({"255", "65535", "65536", "32752"});
    const JsonShape code_text = text_shape({"255", "12345x", "-1", "+1", " 1", "18446744073709551616"});
    return object_shape({{"short_name", text},
                         {"long_name", text},
                         {"manufacturer", text},
                         {"model", text},
                         {"oem_id", code},
                         {"manufacturer_id", code_text},
                         {"modules", array_shape(text)}});
}

bool run(Input input) {
    static MemoryFile file;
    static const JsonShape kShape = brand_shape();
    const std::string text = json_text(input, kShape);
    file.write(text);
    // Nothing stands for a file that is not there.
    const std::string path = input.empty() ? std::string(MemoryFile::kDirectory) + "/absent" : file.path();
    const Brand brand = ondra::device::read_brand_file(QString::fromStdString(path));
    require(!input.empty() || all_of(brand) == all_of(Brand()), "without a file there are the defaults");
    const std::uint16_t code = ondra::device::parse_brand_code(text);
    // strtoull() reads the same, but also takes white space and a sign.
    const bool digits = !text.empty() && text[0] >= '0' && text[0] <= '9';
    require(code == (digits ? std::strtoull(text.c_str(), nullptr, 10) & 0xFFFF : 0),
            "a code is the low 16 bits of its digits");
    return all_of(brand) != all_of(Brand());
}

std::vector<Seed> seeds() {
    std::vector<Seed> seeds = json_seeds();
    const std::vector<Seed> own = as_json_texts({
        {"whole", R"({"short_name": "a", "long_name": "b", "manufacturer": "c", "model": "d",
            "oem_id": 255, "manufacturer_id": "32752", "modules": ["e", "f", 3, null]})"},
        {"model_only", R"({"model": "X"})"},
        {"wrong_types", R"({"short_name": true, "long_name": null, "model": {}, "modules": 5.9})"},
        {"codes", R"({"oem_id": 65537, "manufacturer_id": "-1"})"},
        {"huge_codes", R"({"oem_id": 1e300, "manufacturer_id": "99999999999999999999999"})"},
        {"code", "12345x"},
        {"highest_code", "18446744073709551615"},
        {"beyond_the_highest_code", "18446744073709551616"},
    });
    seeds.insert(seeds.end(), own.begin(), own.end());
    return seeds;
}

}  // namespace

Target brand_file() {
    return {"brand_file",
            run,
            seeds,
            400,
            "short=\"\\\"short_name\\\":\"\nlong=\"\\\"long_name\\\":\"\nmaker=\"\\\"manufacturer\\\":\"\n"
            "model=\"\\\"model\\\":\"\noem=\"\\\"oem_id\\\":\"\ncode=\"\\\"manufacturer_id\\\":\"\n"
            "modules=\"\\\"modules\\\":[\"\nhuge=\"1e300\"\nlimit=\"18446744073709551615\"\n",
            "core/libs/ondra/brand.cpp"};
}

}  // namespace fuzz
