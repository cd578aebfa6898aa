// kzddl decode: replies that were captured earlier.
#include <algorithm>

#include "capture/capture.h"
#include "tools/app.h"
#include "tools/capacity.h"
#include "tools/copy_limits.h"
#include "tools/inquiry_view.h"
#include "tools/mode_view.h"
#include "tools/options.h"
#include "tools/port_groups.h"
#include "tools/vpd.h"

namespace tool {
namespace {

struct Decoder {
  std::string_view name;
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

View decode_modes_as(ByteSpan reply, ModeForm form) {
  return mode_view(form == ModeForm::ten ? "MODE SENSE (10) data" : "MODE SENSE (6) data", reply,
                   form);
}

View decode_modes(ByteSpan reply) { return decode_modes_as(reply, mode_form_of(reply)); }
View decode_modes_10(ByteSpan reply) { return decode_modes_as(reply, ModeForm::ten); }

constexpr Decoder decoders[] = {
    {"inquiry", "standard inquiry data", standard_inquiry_view},
    {"vpd00", "Supported VPD Pages", decode_page<vpd::supported_pages>},
    {"vpd80", "Unit Serial Number", decode_page<vpd::unit_serial_number>},
    {"vpd83", "Device Identification", decode_page<vpd::device_identification>},
    {"vpdb0", "Block Limits", decode_page<vpd::block_limits>},
    {"vpdb1", "Block Device Characteristics", decode_page<vpd::block_characteristics>},
    {"vpdb2", "Logical Block Provisioning", decode_page<vpd::provisioning>},
    {"groups", "REPORT TARGET PORT GROUPS", captured_port_groups_view},
    {"capacity", "READ CAPACITY (10) or (16), by its length", captured_capacity_view},
    {"modes", "MODE SENSE (6), or (10) by its length or with --ten", decode_modes},
    {"copy-limits", "RECEIVE COPY RESULTS, operating parameters", captured_copy_limits_view},
};

struct Options {
  std::string kind;
  std::string file;
  bool ten = false;
};

void run(const Context &context, const Options &options) {
  const auto *decoder = std::ranges::find(decoders, options.kind, &Decoder::name);
  const bool of_modes = decoder->decode == decode_modes;
  if (options.ten && !of_modes) throw Error::usage("--ten is for the kind modes");
  const auto decode = options.ten ? decode_modes_10 : decoder->decode;
  try {
    context.print(decode(capture::load(options.file)));
  } catch (const capture::Error &error) {
    throw Error::usage(fmt::format("decode {}", error.what()));
  } catch (const Error &error) {
    throw Error::usage(fmt::format("decode {}: {}", options.file, error.what()));
  }
}

}  // namespace

Subcommand add_decode(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("decode", "Decode a captured reply");
  const auto options = std::make_shared<Options>();
  parser->add_option("KIND", options->kind, "What the reply answers, see below")
      ->required()
      ->check(CLI::IsMember(names_of(decoders)))
      ->option_text(" ");
  parser
      ->add_option("FILE", options->file,
                   "The reply: raw bytes, or hexadecimal digits with \"#\"\n"
                   "comments; \"-\" is standard input")
      ->required()
      ->option_text(" ");
  parser->add_flag("--ten", options->ten, "Mode parameters of MODE SENSE (10)")->option_text(" ");
  parser->footer("Kinds:\n" + descriptions_of(decoders) +
                 "\nA reply that is cut short is decoded as far as it goes.\n\n"
                 "Examples:\n"
                 "  kzddl decode vpd83 vpd-83.hex\n"
                 "  kzddl --sim inquiry /dev/sda --raw | kzddl decode inquiry -");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
