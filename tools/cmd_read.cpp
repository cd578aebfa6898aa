// kzddl read: blocks of a disk into a file or a pipe.
#include <algorithm>

#include "tools/app.h"
#include "tools/file.h"
#include "tools/options.h"
#include "tools/output.h"
#include "tools/transfer.h"

namespace tool {
namespace {

void copy(BlockDevice &disk, File &out, std::uint64_t count, Progress &progress) {
  std::vector<std::uint8_t> buffer(disk.chunk() * disk.block_size());
  while (progress.done() < count) {
    const auto blocks = std::min<std::uint64_t>(disk.chunk(), count - progress.done());
    const auto size = static_cast<std::size_t>(blocks) * disk.block_size();
    const Moved moved = disk.read(progress.next(), std::span(buffer).first(size));
    try {
      out.write(ByteSpan(buffer).first(moved.blocks * disk.block_size()));
    } catch (const Error &error) {
      progress.add(static_cast<std::size_t>(out.written() / disk.block_size() - progress.done()));
      progress.stop(error.reason());
    }
    progress.add(moved.blocks);
    if (!moved.failure.empty()) progress.stop(moved.failure);
  }
}

void run(const Context &context, const TransferOptions &options) {
  if (options.file == "-") require_no_terminal();
  Device device(options.node);
  BlockDevice disk(device, "read");
  disk.require(*options.lba, *options.count);
  File out = File::output(options.file);
  Progress progress(disk, "read", *options.lba, options.count);
  copy(disk, out, *options.count, progress);
  out.close();
  if (options.file != "-") context.print(progress.view("read"));
}

}  // namespace

Subcommand add_read(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("read", "Read blocks of a disk");
  const auto options = std::make_shared<TransferOptions>();
  parser->add_option("NODE", options->node, "Device node")->required()->option_text(" ");
  add_number_option(*parser, "--lba", "Address of the first block", options->lba)->required();
  add_number_option(*parser, "--count", "Number of blocks", options->count)->required();
  parser
      ->add_option("--out", options->file, "Where they go; \"-\" (the default) is standard output")
      ->option_text("FILE");
  parser->footer(
      "Numbers may be hexadecimal, with 0x. When the device fails, the blocks before\n"
      "the one that cannot be read have been written out.\n\n"
      "Examples:\n"
      "  kzddl --sim read /dev/sda --lba 0 --count 8 | hexdump -C\n"
      "  kzddl read --route direct /dev/sda --lba 0 --count 2048 --out start.img");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
