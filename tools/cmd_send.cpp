// kzddl send: any command, described by its CDB.
#include "capture/capture.h"
#include "tools/app.h"
#include "tools/command.h"
#include "tools/options.h"
#include "tools/output.h"

namespace tool {
namespace {

using capture::Bytes;

constexpr std::size_t min_cdb_size = 6;
constexpr std::size_t max_cdb_size = 255;
constexpr std::uint32_t max_data_size = 64U << 20;

struct Options {
  std::string node;
  Bytes cdb;
  std::uint32_t in_length = 0;
  std::string out_file;
  std::string out_hex_file;
  ByteFormat format = ByteFormat::decoded;
};

bool sends_data(const Options &options) {
  return !options.out_file.empty() || !options.out_hex_file.empty();
}

/// Nothing is guessed here: what looks like digits may be meant as it is.
Bytes data_to_send(const Options &options) {
  try {
    return options.out_file.empty() ? capture::load_hex(options.out_hex_file)
                                    : capture::load_raw(options.out_file);
  } catch (const capture::Error &error) {
    throw Error::usage(fmt::format("send: {}", error.what()));
  }
}

Data prepare_data(const Options &options, Bytes &buffer) {
  if (sends_data(options)) {
    buffer = data_to_send(options);
    if (buffer.size() > max_data_size) throw Error::usage("send: over 64 MiB of data");
    return {Data::Direction::to_device, buffer};
  }
  if (options.in_length == 0) return {};
  buffer.resize(options.in_length);
  return {Data::Direction::from_device, buffer};
}

View completion_view(const Device &device, const Options &options, ByteSpan received) {
  ViewBuilder view(fmt::format("{}: {} received", device.name(), counted(received.size(), "byte")));
  view.value("node", device.name());
  view.value("cdb", hex(options.cdb));
  view.value("received", received.size());
  view.value("hex", hex(received));
  view.append(hex_dump(received));
  return view.build();
}

void run(const Context &context, const Options &options) {
  if (options.cdb.size() < min_cdb_size || options.cdb.size() > max_cdb_size) {
    throw Error::usage("--cdb: a CDB has 6 to 255 bytes");
  }
  Bytes buffer;
  const Data data = prepare_data(options, buffer);
  Device device(options.node);
  const Completion completion = send_command(device, options.cdb, data, "send");
  if (!completion.ok()) throw Error("send", device.name(), completion.reason());
  const bool reads = data.direction == Data::Direction::from_device;
  const ByteSpan received = ByteSpan(buffer).first(reads ? completion.transferred : 0);
  if (options.format != ByteFormat::decoded) {
    context.require_text("send");
    print_bytes(received, options.format,
                fmt::format("CDB {}, {}", hex(options.cdb), device.name()));
  } else {
    context.print(completion_view(device, options, received));
  }
}

}  // namespace

Subcommand add_send(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("send", "Send any command to a device");
  const auto options = std::make_shared<Options>();
  parser->add_option("NODE", options->node, "Device node")->required()->option_text(" ");
  add_bytes_option(*parser, "--cdb", "Command descriptor block, such as \"12 00 00 00 60 00\"",
                   options->cdb)
      ->required();
  auto *in = parser->add_option("--in", options->in_length, "Bytes to read from the device");
  in->check(CLI::Range(std::uint32_t{0}, max_data_size))->option_text("N");
  auto *out = parser->add_option("--out", options->out_file,
                                 "Bytes for the device; \"-\" is standard input");
  out->option_text("FILE")->excludes(in);
  parser
      ->add_option("--out-hex", options->out_hex_file,
                   "The same, as hexadecimal digits with \"#\" comments")
      ->option_text("FILE")
      ->excludes(in)
      ->excludes(out);
  add_format_options(*parser, options->format);
  parser->footer(
      "The command reaches the device as it stands, whatever it does there.\n\n"
      "Examples:\n"
      "  kzddl --sim send /dev/sda --cdb \"12 00 00 00 60 00\" --in 96\n"
      "  kzddl --sim send /dev/sda --cdb \"5e 00 00 00 00 00 00 00 ff 00\" --in 255");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
