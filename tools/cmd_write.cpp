// kzddl write: blocks of a disk out of a file or a pipe.
#include <algorithm>

#include "tools/app.h"
#include "tools/file.h"
#include "tools/options.h"
#include "tools/transfer.h"

namespace tool {
namespace {

struct Options : TransferOptions {
  bool yes = false;
};

/// How many blocks there are to write, if that is known beforehand. Throws Error (of usage) when
/// it is known that the input does not make them.
std::optional<std::uint64_t> blocks_to_write(const Options &options, const File &in,
                                             std::size_t block_size) {
  const std::optional<std::uint64_t> size = in.size();
  if (!size) return options.count;
  const std::uint64_t blocks = *size / block_size;
  if (options.count && *options.count > blocks) {
    throw Error::usage(fmt::format("write: {}: {} bytes are not {} blocks of {}", in.name(), *size,
                                   *options.count, block_size));
  }
  if (!options.count && *size % block_size != 0) {
    throw Error::usage(fmt::format("write: {}: {} bytes are not whole blocks of {}", in.name(),
                                   *size, block_size));
  }
  return options.count.value_or(blocks);
}

/// Writes up to `limit` blocks; whether the input ended before them.
bool copy(File &in, BlockDevice &disk, std::uint64_t limit, Progress &progress) {
  std::vector<std::uint8_t> buffer(disk.chunk() * disk.block_size());
  while (progress.done() < limit) {
    const auto blocks = std::min<std::uint64_t>(disk.chunk(), limit - progress.done());
    const auto data = std::span(buffer).first(static_cast<std::size_t>(blocks) * disk.block_size());
    std::size_t size = 0;
    try {
      size = in.read(data);
    } catch (const Error &error) {
      progress.stop(error.reason());
    }
    const std::size_t whole = size - size % disk.block_size();
    if (whole != 0) {
      const Moved moved = disk.write(progress.next(), data.first(whole));
      progress.add(moved.blocks);
      if (!moved.failure.empty()) progress.stop(moved.failure);
    }
    if (size != whole) {
      progress.stop(fmt::format("{} ended {} into a block", escaped(in.name()),
                                counted(size - whole, "byte")));
    }
    if (size < data.size()) return true;
  }
  return false;
}

bool is_at_end(File &in, const Progress &progress) {
  std::uint8_t byte = 0;
  try {
    return in.read({&byte, 1}) == 0;
  } catch (const Error &error) {
    progress.stop(error.reason());
  }
}

void run(const Context &context, const Options &options) {
  if (!options.yes) {
    throw Error::usage(
        fmt::format("write {}: it overwrites blocks, which --yes must allow", options.node));
  }
  File in = File::input(options.file);
  Device device(options.node);
  BlockDevice disk(device, "write");
  const std::uint64_t lba = *options.lba;
  const std::optional<std::uint64_t> total = blocks_to_write(options, in, disk.block_size());
  disk.require(lba, total.value_or(1));

  Progress progress(disk, "write", lba, total);
  const bool ended = copy(in, disk, total.value_or(disk.last_lba() - lba + 1), progress);
  if (total && ended) progress.stop(fmt::format("{} ended too soon", escaped(in.name())));
  if (!total && !ended && !is_at_end(in, progress)) {
    progress.stop(fmt::format("the disk ends here, {} does not", escaped(in.name())));
  }
  context.print(progress.view("written"));
}

}  // namespace

Subcommand add_write(CLI::App &app, Context &context) {
  CLI::App *parser = app.add_subcommand("write", "Overwrite blocks of a disk");
  const auto options = std::make_shared<Options>();
  parser->add_option("NODE", options->node, "Device node")->required()->option_text(" ");
  add_number_option(*parser, "--lba", "Address of the first block", options->lba)->required();
  add_number_option(*parser, "--count", "Number of blocks; without it, the whole input",
                    options->count);
  parser
      ->add_option("--in", options->file, "What is written; \"-\" (the default) is standard input")
      ->option_text("FILE");
  parser->add_flag("--yes", options->yes, "Allow it: nothing is written without this")
      ->option_text(" ");
  parser->footer(
      "Numbers may be hexadecimal, with 0x. The input must be whole blocks: a file is\n"
      "looked at before anything is written, a pipe as it goes. When the device fails,\n"
      "of the blocks from the named one on up to 64 KiB may have been written.\n\n"
      "Examples:\n"
      "  kzddl write --route direct /dev/sdb --lba 2048 --in start.img --yes\n"
      "  kzddl --sim --sim-store=/tmp/array write /dev/sda --lba 0 --in start.img --yes");
  return {parser, [&context, options] { run(context, *options); }};
}

}  // namespace tool
