// kzddl decode: replies that were captured earlier.
#include <algorithm>
#include <iterator>

#include "capture/capture.h"
#include "tools/app.h"
#include "tools/inquiry_view.h"
#include "tools/vpd.h"

namespace tool {
namespace {

struct Decoder {
  std::string_view kind;
  std::string_view description;
  View (*decode)(ByteSpan reply);
};

template <std::uint8_t code>
View decode_page(ByteSpan reply) {
  if (reply.size() < VpdPage::header_size) {
    throw Error::usage(fmt::format("cut short: {} of the {} bytes of a page's header", reply.size(),
                                   VpdPage::header_size));
  }
  const VpdPage page(reply);
  if (page.code != code) {
    throw Error::usage(fmt::format("this is page {:02X}h, not page {:02X}h", page.code, code));
  }
  return vpd_view(reply);
}

constexpr Decoder decoders[] = {
    {"inquiry", "standard inquiry data", standard_inquiry_view},
    {"vpd00", "Supported VPD Pages", decode_page<vpd::supported_pages>},
    {"vpd80", "Unit Serial Number", decode_page<vpd::unit_serial_number>},
    {"vpd83", "Device Identification", decode_page<vpd::device_identification>},
};

struct Options {
  std::string kind;
  std::string file;
};

void run(const Context &context, const Options &options) {
  const auto *decoder =
      std::find_if(std::begin(decoders), std::end(decoders),
                   [&](const Decoder &candidate) { return candidate.kind == options.kind; });
  try {
    context.print(decoder->decode(capture::load(options.file)));
  } catch (const capture::Error &error) {
    throw Error::usage(fmt::format("decode {}", error.what()));
  } catch (const Error &error) {
    throw Error::usage(fmt::format("decode {}: {}", options.file, error.what()));
  }
}

std::vector<std::string> kinds() {
  std::vector<std::string> names;
  for (const Decoder &decoder : decoders)
    names.emplace_back(decoder.kind);
  return names;
}

std::string kinds_help() {
  std::string text = "Kinds:\n";
  for (const Decoder &decoder : decoders) {
    text += fmt::format("  {:<10}{}\n", decoder.kind, decoder.description);
  }
  return text;
}

}  // namespace

Command add_decode(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("decode", "Decode a captured reply");
  const auto options = std::make_shared<Options>();
  parser->add_option("KIND", options->kind, "What the reply answers, see below")
      ->required()
      ->check(CLI::IsMember(kinds()))
      ->option_text(" ");
  parser
      ->add_option("FILE", options->file,
                   "The reply: raw bytes, or hexadecimal digits with \"#\"\n"
                   "comments; \"-\" is standard input")
      ->required()
      ->option_text(" ");
  parser->footer(kinds_help() +
                 "\nA reply that is cut short is decoded as far as it goes.\n\n"
                 "Examples:\n"
                 "  kzddl decode vpd83 vpd-83.hex\n"
                 "  kzddl --sim inquiry /dev/sda --raw | kzddl decode inquiry -");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
