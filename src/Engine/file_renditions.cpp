// SPDX-License-Identifier: MIT
#include "file_renditions_p.h"

#include <algorithm>
#include <climits>
#include <thread>

#include "codec/row_reader.h"
#include "core_separation_p.h"
#include "linear_rows_p.h"
#include "opaque_rows_filter_p.h"
#include "prompt_thread.h"
#include "rendition_slices_p.h"
#include "row_pipeline_p.h"
#include "stream_resizer_p.h"

namespace voimg {
namespace {

constexpr int kBlockRows = 16;
constexpr int kBlocks = 6;  // blocks in flight between the reading thread and the workers
static_assert(kBlockRows <= kOpaqueBlockRows);

// A rendition's bitmap with its size and format; its pixels come with fillBlank.
Bitmap shapeOf(const FileRendition& r) {
    Bitmap b;
    b.format = r.format;
    b.width = int(r.grid.width);
    b.height = int(r.grid.height);
    return b;
}

size_t valuesOf(const Bitmap& b) { return size_t(b.width) * size_t(b.height) * size_t(b.channels()); }

// Blank pixel storage for a bitmap whose size and format are set. Storage that is mapped reads as zeros
// already: its pages are faulted in by the workers as they write its rows, over the whole pass, rather than
// all at once before they can start (most of a millisecond for a 600-pixel rendition on a virtual machine).
template <class Values>
void makeBlank(Values& values, size_t count) {
    values.resize(count);
    if (!Values::allocator_type::mapped(count)) std::fill(values.begin(), values.end(), typename Values::value_type(0));
}

void fillBlank(Bitmap& b) {
    if (b.format == BitmapFormat::RgbaFloatLinear)
        makeBlank(b.floats, valuesOf(b));
    else
        makeBlank(b.bytes, valuesOf(b));
}

// A share of the columns of every rendition, computed by one thread.
struct Worker {
    std::vector<RenditionSlice> slices;      // one per rendition
    std::vector<RenditionSlice*> direct;     // those made from the decoded rows
    int64_t sourceBegin = 0, sourceEnd = 0;  // decoded columns they read
    std::vector<float> linear;
};

// What each rendition is made from: -1 for the decoded rows, else the index of the largest rendition,
// when that one is at least twice as large: shrinking its rows again is far cheaper than filtering the
// decoded rows a second time, and as good, since the larger rendition keeps every frequency the smaller
// one can show.
std::vector<int> cascadeSources(const std::vector<FileRendition>& renditions) {
    size_t largest = 0;
    for (size_t i = 1; i < renditions.size(); ++i)
        if (renditions[i].transform.m22 > renditions[largest].transform.m22) largest = i;
    const AffineTransform& big = renditions[largest].transform;
    std::vector<int> sources(renditions.size(), -1);
    for (size_t i = 0; i < renditions.size(); ++i) {
        const AffineTransform& t = renditions[i].transform;
        if (i != largest && t.m11 * 2 <= big.m11 && t.m22 * 2 <= big.m22) sources[i] = int(largest);
    }
    return sources;
}

void setUpWorker(Worker& worker, int index, int total, const std::vector<FileRendition>& renditions,
                 const std::vector<int>& sources, std::vector<Bitmap>& bitmaps, const Rect& fileExtent, int width,
                 int height) {
    const size_t n = renditions.size();
    worker.slices.resize(n);
    auto share = [&](size_t i, int64_t& begin, int64_t& end) {
        const int64_t columns = renditions[i].grid.width;
        begin = columns * index / total, end = columns * (index + 1) / total;
    };
    // Renditions made from a larger one first: they tell which of its columns they read.
    std::vector<int64_t> needBegin(n, INT64_MAX), needEnd(n, INT64_MIN);
    for (size_t i = 0; i < n; ++i) {
        if (sources[i] < 0) continue;
        const FileRendition& from = renditions[size_t(sources[i])];
        SliceTarget target{AffineTransform::translation(float(from.grid.x), float(from.grid.y))
                               .appending(from.transform.inverted())
                               .appending(renditions[i].transform),
                           from.grid.width,
                           from.grid.height,
                           renditions[i].grid,
                           renditions[i].coverage,
                           &bitmaps[i]};
        int64_t begin = 0, end = 0;
        share(i, begin, end);
        makeRenditionSlice(worker.slices[i], target, begin, end, begin, end);
        const StreamResizer& resizer = *worker.slices[i].resizer;
        if (resizer.sourceEnd() > resizer.sourceBegin()) {
            needBegin[size_t(sources[i])] = std::min(needBegin[size_t(sources[i])], resizer.sourceBegin());
            needEnd[size_t(sources[i])] = std::max(needEnd[size_t(sources[i])], resizer.sourceEnd());
        }
    }
    // The decoded picture's pixels, scaled to the file's size, then the rendition's transform.
    const AffineTransform decodedToFile =
        AffineTransform::scale(fileExtent.width / float(width), fileExtent.height / float(height));
    worker.sourceBegin = width, worker.sourceEnd = 0;
    for (size_t i = 0; i < n; ++i) {
        if (sources[i] >= 0) continue;
        SliceTarget target{decodedToFile.appending(renditions[i].transform),
                           width,
                           height,
                           renditions[i].grid,
                           renditions[i].coverage,
                           &bitmaps[i]};
        int64_t begin = 0, end = 0;
        share(i, begin, end);
        const int64_t computeBegin = std::min(begin, needBegin[i]), computeEnd = std::max(end, needEnd[i]);
        RenditionSlice& slice = worker.slices[i];
        makeRenditionSlice(slice, target, computeBegin, computeEnd, begin, end);
        for (size_t k = 0; k < n; ++k)
            if (sources[k] == int(i)) slice.cascades.push_back(&worker.slices[k]);
        worker.direct.push_back(&slice);
        if (slice.resizer->sourceEnd() > slice.resizer->sourceBegin()) {
            worker.sourceBegin = std::min(worker.sourceBegin, slice.resizer->sourceBegin());
            worker.sourceEnd = std::max(worker.sourceEnd, slice.resizer->sourceEnd());
        }
    }
    worker.sourceBegin = std::min(worker.sourceBegin, worker.sourceEnd);
}

// Threads sharing the resizing: every core the reading thread leaves, at most two, and no more than the
// narrowest rendition has columns to hand out in useful shares. On two cores one worker beside the reader
// is measurably faster than two, which would keep taking the reader's core from it.
int workerCount(const std::vector<FileRendition>& renditions) {
    int64_t narrowest = INT64_MAX;
    for (const FileRendition& r : renditions) narrowest = std::min(narrowest, r.grid.width);
    const int cores = int(std::max(1u, std::thread::hardware_concurrency()));
    return int(std::clamp<int64_t>(narrowest / 32, 1, std::clamp(cores - 1, 1, 2)));
}

// How a worker turns decoded rows into the rows its resizers take: linear light over the columns it reads,
// or, for a single resizer that boxes columns, box averages taken straight from the decoded bytes. The
// reading thread prepares blocks ahead (see RowPipeline) only for a worker that feeds a single resizer
// that filters separately: converted and filtered horizontally, which is most of the work. (Where the
// resizer boxes, converting is cheap, and the buffers would be as wide as the decoded rows.) Opaque 8-bit
// rows are then converted and filtered a block at a time, and the worker writes its blocks straight into
// its resizer's ring.
struct RowConversion {
    RowLayout layout;
    StreamResizer* boxing = nullptr;
    StreamResizer* filtering = nullptr;
    bool opaqueBlocks = false;
    int64_t width = 0;
    int64_t begin = 0, end = 0;    // source columns
    size_t floatsPerRow = 0;       // of a converted row
    size_t aheadFloatsPerRow = 0;  // of a row prepared ahead, filtered; 0 when none is

    RowConversion(Worker& worker, const RowReader& reader)
        : layout{reader.sixteenBit(), reader.hasAlpha(), reader.grey()}, width(reader.width()) {
        if (worker.direct.size() == 1 && worker.direct[0]->resizer->boxX() > 1 && !layout.sixteenBit)
            boxing = worker.direct[0]->resizer.get();
        else if (worker.direct.size() == 1 && worker.direct[0]->resizer->filtersSeparately())
            filtering = worker.direct[0]->resizer.get();
        begin = worker.sourceBegin, end = worker.sourceEnd;
        floatsPerRow = size_t(boxing ? boxing->boxedWidth() : width) * 4;
        aheadFloatsPerRow = filtering ? size_t(filtering->outWidth()) * 4 : 0;
        opaqueBlocks = filtering && !layout.sixteenBit && !layout.alpha && opaqueRowsFilterIsFast();
        if (opaqueBlocks) filtering->makeRoomForRowsAhead(kBlockRows);
    }

    void convert(const uint8_t* row, float* out) const {
        if (boxing)
            toLinearBoxed(row, boxing->boxedBegin(), boxing->boxedEnd(), boxing->boxX(), width, layout, out);
        else
            toLinear(row, begin, end, layout, out);
    }

    // The reading thread's share, when `filtering`: `scratch` holds a converted row (floatsPerRow).
    void prepareAhead(const RowPipeline::Block& block, size_t stride, float* scratch, float* out) const {
        if (opaqueBlocks) {
            float* rows[kBlockRows];
            for (int i = 0; i < block.rows; ++i) rows[i] = out + size_t(i) * aheadFloatsPerRow;
            filtering->filterOpaqueSourceRows(block.pixels, stride, block.rows, rows);
            return;
        }
        for (int i = 0; i < block.rows; ++i) {
            convert(block.pixels + size_t(i) * stride, scratch);
            filtering->filterSourceRow(scratch, out + size_t(i) * aheadFloatsPerRow);
        }
    }
};

void feedWorker(Worker& worker, const RowConversion& conversion, RowPipeline& pipeline, const RowReader& reader) {
    worker.linear.resize(conversion.floatsPerRow);
    auto push = [&](const float* row) {
        if (conversion.boxing) return conversion.boxing->pushBoxedRow(row);
        for (RenditionSlice* slice : worker.direct) slice->resizer->pushRow(row);
    };
    for (int64_t sequence = 0;; ++sequence) {
        RowPipeline::Block* block = pipeline.waitFor(sequence, true);
        if (!block) return;
        const bool ahead = block->ahead == RowPipeline::Block::Ahead::Converted;
        if (!ahead && conversion.opaqueBlocks) {
            float* rows[kBlockRows];
            for (int i = 0; i < block->rows; ++i) rows[i] = conversion.filtering->rowAhead(i);
            conversion.filtering->filterOpaqueSourceRows(block->pixels, reader.stride(), block->rows, rows);
            conversion.filtering->takeRowsAhead(block->rows);
            pipeline.release(block);
            continue;
        }
        for (int i = 0; i < block->rows; ++i) {
            if (ahead) {
                conversion.filtering->pushFilteredRow(block->converted + size_t(i) * conversion.aheadFloatsPerRow);
                continue;
            }
            conversion.convert(block->pixels + size_t(i) * reader.stride(), worker.linear.data());
            push(worker.linear.data());
        }
        pipeline.release(block);
    }
}

}  // namespace

std::optional<FileRendition> fileRenditionOf(const Image& image, const Rect& rect, BitmapFormat format,
                                             const FileNode** file) {
    if (image.isNull()) return std::nullopt;
    const Node* node = image.node().get();
    if (const auto* crop = dynamic_cast<const CropNode*>(node)) node = crop->child().get();
    const auto* affine = dynamic_cast<const AffineNode*>(node);
    if (affine == nullptr) return std::nullopt;
    const auto* source = dynamic_cast<const FileNode*>(affine->child().get());
    // A file decoded already renders faster from its cached pixels.
    if (source == nullptr || !source->decodedReductions().empty()) return std::nullopt;
    const AffineTransform& t = affine->transform();
    if (t.m12 != 0 || t.m21 != 0 || !(t.m11 > 0 && t.m11 < 1) || !(t.m22 > 0 && t.m22 < 1)) return std::nullopt;
    const PixelRect grid = RenderContext::pixelGrid(image, rect);
    if (grid.isEmpty() || grid.area() > kMaxRenderPixels || grid.width > INT32_MAX || grid.height > INT32_MAX)
        return std::nullopt;
    if (file) *file = source;
    // Inside the crop (or the transformed file, without one) pixels are whole; at its border partly covered.
    return FileRendition{t, image.extent(), grid, format};
}

std::vector<Bitmap> renderFileRenditions(const FileNode& file, const std::vector<FileRendition>& renditions,
                                         const RenderContext::RowsFinal& rowsFinal) {
    std::vector<Bitmap> bitmaps;
    for (const FileRendition& r : renditions) bitmaps.push_back(shapeOf(r));
    if (renditions.empty()) return bitmaps;
    // Final rows are told as they are written when one worker writes whole rows, else all at the end.
    std::vector<int64_t> told(renditions.size(), 0);
    auto tell = [&](size_t i, int64_t rows) {
        if (!rowsFinal || rows <= told[i]) return;
        told[i] = rows;
        rowsFinal(i, bitmaps[i], rows);
    };
    auto tellAll = [&] {
        for (size_t i = 0; i < bitmaps.size(); ++i) tell(i, bitmaps[i].height);
    };

    int reduction = 8;
    double largestScale = 0;
    for (const FileRendition& r : renditions) {
        reduction = std::min(reduction, decodeReductionFor(r.transform));
        largestScale = std::max({largestScale, double(r.transform.m11), double(r.transform.m22)});
    }
    RowReadOptions options;
    options.scaleDenominator = reduction;
    options.finalReduction = largestScale > 0 ? 1.0 / largestScale : 1.0;
    std::unique_ptr<RowReader> reader = openRowReader(file.path(), options);
    if (!reader) {
        for (Bitmap& b : bitmaps) fillBlank(b);
        tellAll();
        return bitmaps;
    }

    const int width = reader->width(), height = reader->height();
    // Each worker takes an equal share of the columns of every rendition.
    const int workerTotal = workerCount(renditions);
    // The reader runs on a thread of its own a few blocks ahead, from now on: setting up the workers (their
    // filter taps) overlaps the first rows' decoding. A reader that leaves work for
    // later has it done on another thread, in order; the workers resize, the last of them on this thread.
    RowReader& rows = *reader;
    const bool finishing = rows.finishesRows();
    // This thread and the reading thread on different cores while the rows pass (see CoreSeparation), when
    // they are the only ones busy: a third thread, finishing rows or helping the reader, is better off free
    // to use whichever core is less busy.
    CoreSeparation separation(!finishing && !rows.readsWithHelpers());
    // Declared before the pipeline's threads, so that they outlive them whatever leaves this function.
    std::vector<Worker> workers(static_cast<size_t>(workerTotal));
    std::vector<RowConversion> conversions;  // complete before the pipeline allows conversions, which is
    std::vector<float> readerScratch;        // when the reading thread first reads them
    RowPipeline pipeline(kBlocks, size_t(kBlockRows) * rows.rawStride(),
                         finishing ? size_t(kBlockRows) * rows.stride() : 0, workerTotal);
    std::vector<PromptThread> threads;
    struct Joiner {
        RowPipeline& pipeline;
        std::vector<PromptThread>& threads;
        ~Joiner() {
            pipeline.cancel();
            for (PromptThread& t : threads) t.join();
        }
    } joiner{pipeline, threads};
    threads.push_back(separation.startThread([&] {
        for (;;) {
            RowPipeline::Block* convert = nullptr;
            RowPipeline::Block* block = pipeline.takeEmptyOrConvert(convert);
            if (convert) {
                conversions[0].prepareAhead(*convert, rows.stride(), readerScratch.data(), convert->converted);
                pipeline.markConverted(convert);
                continue;
            }
            if (!block) break;
            block->rows = rows.readRows(block->raw, kBlockRows);
            if (block->rows == 0) {
                pipeline.putBackEmpty(block);
                break;
            }
            pipeline.publish(block, !finishing);
        }
        pipeline.close();
        // Everything is read: take a share of what the worker has left.
        while (RowPipeline::Block* convert = pipeline.takeLeftToConvert()) {
            conversions[0].prepareAhead(*convert, rows.stride(), readerScratch.data(), convert->converted);
            pipeline.markConverted(convert);
        }
    }));
    if (finishing) {
        threads.push_back(separation.startThread([&] {
            for (int64_t sequence = 0;; ++sequence) {
                RowPipeline::Block* block = pipeline.waitFor(sequence, false);
                if (!block) return;
                block->pixels = rows.finishRows(block->raw, block->rows, block->scratch);
                pipeline.markFinished(block);
            }
        }));
    }

    // The bitmaps are made while the first rows are read: nothing writes to them before the workers.
    for (Bitmap& b : bitmaps) fillBlank(b);
    const std::vector<int> sources = cascadeSources(renditions);
    for (int w = 0; w < workerTotal; ++w)
        setUpWorker(workers[size_t(w)], w, workerTotal, renditions, sources, bitmaps, file.extent(), width, height);
    if (rowsFinal && workerTotal == 1)
        for (size_t i = 0; i < renditions.size(); ++i)
            workers[0].slices[i].rowsWritten = [&tell, i](int64_t rows) { tell(i, rows); };
    for (Worker& worker : workers) conversions.emplace_back(worker, rows);
    if (conversions[0].aheadFloatsPerRow > 0) {
        readerScratch.resize(conversions[0].floatsPerRow);
        pipeline.allowConversions(size_t(kBlockRows) * conversions[0].aheadFloatsPerRow);
    }
    for (size_t w = 1; w < workers.size(); ++w)
        threads.push_back(separation.startThread([&, w] { feedWorker(workers[w], conversions[w], pipeline, rows); }));
    feedWorker(workers[0], conversions[0], pipeline, rows);
    // What the rows' end leaves is this thread's alone, and the threads it may start (to finish files) should
    // not be confined to its core.
    separation.release();
    // Every thread runs out of rows on its own; then the resizers flush what the picture's end left.
    for (PromptThread& t : threads) t.join();
    threads.clear();
    for (Worker& worker : workers)
        for (RenditionSlice* slice : worker.direct) finishRenditionSlice(*slice);
    tellAll();
    return bitmaps;
}

}  // namespace voimg
