// kzddl descriptor: target descriptors of EXTENDED COPY, built from their fields.
#include <algorithm>
#include <new>

#include "base/bytes.h"
#include "base/memory.h"
#include "kzddl/kzecopy.h"
#include "tools/app.h"
#include "tools/options.h"
#include "tools/output.h"
#include "tools/vpd.h"

namespace tool {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t identifier_size = 8;
constexpr std::size_t port_id_size = 3;
constexpr std::size_t max_designator_size = 20;

struct Options {
  std::string kind;
  Bytes lun;
  Bytes port;
  Bytes id;
  std::optional<std::uint8_t> code_set;  ///< binary when empty
  std::optional<std::uint8_t> type;      ///< NAA when empty
  std::uint32_t parameters = 0;
  ByteFormat format = ByteFormat::decoded;
};

void require_size(std::string_view option, const Bytes &bytes, std::size_t size) {
  if (bytes.size() == size) return;
  throw Error::usage(fmt::format("descriptor: this kind needs {} of {} bytes", option, size));
}

Bytes built(int result, unsigned char *td) {
  const kzddl::Buffer owner(td);
  if (result != 0) throw std::bad_alloc();
  return {td, td + KZDDL_TARGET_DESCRIPTOR_SIZE};
}

void refuse(std::string_view option, bool given) {
  if (given) throw Error::usage(fmt::format("descriptor: this kind takes no {}", option));
}

void refuse_designator(const Options &options) {
  refuse("--id", !options.id.empty());
  refuse("--code-set", options.code_set.has_value());
  refuse("--type", options.type.has_value());
}

Bytes build_port_name(const Options &options) {
  refuse_designator(options);
  require_size("--lun", options.lun, identifier_size);
  require_size("--port", options.port, identifier_size);
  unsigned char *td = nullptr;
  const int result =
      do_td_create_e0(options.lun.data(), options.port.data(), options.parameters, &td);
  return built(result, td);
}

Bytes build_port_id(const Options &options) {
  refuse_designator(options);
  require_size("--lun", options.lun, identifier_size);
  require_size("--port", options.port, port_id_size);
  Bytes port = options.port;
  port.resize(identifier_size);
  unsigned char *td = nullptr;
  const int result = do_td_create_e1(options.lun.data(), port.data(), options.parameters, &td);
  return built(result, td);
}

Bytes build_identification(const Options &options) {
  constexpr std::uint8_t binary = 1;
  constexpr std::uint8_t naa = 3;
  refuse("--lun", !options.lun.empty());
  refuse("--port", !options.port.empty());
  if (options.id.empty() || options.id.size() > max_designator_size) {
    throw Error::usage(
        fmt::format("descriptor: this kind needs --id of 1 to {} bytes", max_designator_size));
  }
  const std::uint8_t code_set = options.code_set.value_or(binary);
  const std::uint8_t type = options.type.value_or(naa);
  if (code_set > 0x0F || type > 0x0F) {
    throw Error::usage("descriptor: --code-set and --type have one digit");
  }
  unsigned char *td = nullptr;
  const int result = do_td_create_e4(code_set, type, static_cast<unsigned char>(options.id.size()),
                                     options.id.data(), options.parameters, &td);
  return built(result, td);
}

void show_port_name(ViewBuilder &view, ByteSpan td) {
  view.field("LUN", "lun", hex(td.subspan(4, identifier_size)));
  view.field("N_Port_Name", "port_name", hex(td.subspan(12, identifier_size)));
}

void show_port_id(ViewBuilder &view, ByteSpan td) {
  view.field("LUN", "lun", hex(td.subspan(4, identifier_size)));
  view.field("N_Port_ID", "port_id", hex(td.subspan(21, port_id_size)));
}

void show_identification(ViewBuilder &view, ByteSpan td) {
  view.field("Code set", "code_set", code_set_words(td[4]));
  view.field("Type", "designator_type", designator_type_words(td[5]));
  view.field("Designator", "designator", hex(td.subspan(8, td[7])));
}

struct Kind {
  std::string_view name;
  std::string_view description;
  Bytes (*build)(const Options &options);
  void (*show)(ViewBuilder &view, ByteSpan td);
};

constexpr Kind kinds[] = {
    {"port-name", "E0h, Fibre Channel N_Port_Name: --lun, --port (8 bytes)", build_port_name,
     show_port_name},
    {"port-id", "E1h, Fibre Channel N_Port_ID: --lun, --port (3 bytes)", build_port_id,
     show_port_id},
    {"identification", "E4h, Identification Descriptor: --id, --code-set, --type",
     build_identification, show_identification},
};

View descriptor_view(const Kind &kind, ByteSpan td) {
  ViewBuilder view(fmt::format("Copy target descriptor, {}", counted(td.size(), "byte")));
  view.value("kind", kind.name);
  view.field("Type code", "type_code", fmt::format("{:02X}h", td[0]), td[0]);
  kind.show(view, td);
  const std::uint32_t parameters = kzddl::load_be32(&td[28]);
  view.field("Parameters", "parameters", fmt::format("{:08X}h", parameters), parameters);
  view.value("hex", hex(td));
  view.append(hex_dump(td));
  return view.build();
}

void run(const Context &context, const Options &options) {
  const Kind &kind = *std::ranges::find(kinds, options.kind, &Kind::name);
  const Bytes td = kind.build(options);
  if (options.format != ByteFormat::decoded) {
    print_bytes(td, options.format, fmt::format("Copy target descriptor, {}", kind.name));
  } else {
    context.print(descriptor_view(kind, td));
  }
}

}  // namespace

Subcommand add_descriptor(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("descriptor", "Build a target descriptor for copies");
  const auto options = std::make_shared<Options>();
  parser->add_option("KIND", options->kind, "How it names the target, see below")
      ->required()
      ->check(CLI::IsMember(names_of(kinds)))
      ->option_text(" ");
  add_bytes_option(*parser, "--lun", "Logical unit number, 8 bytes", options->lun);
  add_bytes_option(*parser, "--port", "N_Port_Name or N_Port_ID", options->port);
  add_bytes_option(*parser, "--id", "Designator, at most 20 bytes", options->id);
  add_byte_option(*parser, "--code-set", "Code set of the designator (1: binary)",
                  options->code_set);
  add_byte_option(*parser, "--type", "Type of the designator (3: NAA)", options->type);
  parser
      ->add_option("--parameters", options->parameters,
                   "Device type specific parameters; of a disk the block\n"
                   "size in bytes (0)")
      ->option_text("N");
  add_format_options(*parser, options->format);
  parser->footer("Kinds:\n" + descriptions_of(kinds) +
                 "\nNo command is sent.\n\n"
                 "Examples:\n"
                 "  kzddl descriptor identification --id 6024B5A0000000010000000000000000\n"
                 "  kzddl descriptor port-id --lun 0001000000000000 --port 010203 \\\n"
                 "    --parameters 512");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
