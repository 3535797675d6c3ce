#include "source/Diagnostics.h"

namespace tolvin {

namespace {

constexpr Severity E = Severity::kError;
constexpr Severity W = Severity::kWarning;
constexpr Severity I = Severity::kInformation;

}  // namespace

// A prefix is the message up to the first text that varies (a path, a
// number, a chunk name). The meanings are written as the manual page shows
// them: plain text, one sentence, no markup.
const std::vector<Diagnostic>& diagnostics() {
  static const std::vector<Diagnostic> rows = {
      // The run
      {"Machine not LITTLE ENDIAN", E,
       "The machine stores numbers big-endian; nothing is converted and the exit status is 255."},
      {"file not found!", E, "The input does not exist; nothing is converted."},
      {"Unsupported extension:", E,
       "No converter reads the input's extension, shown lower-cased; nothing is converted."},
      {"Input is not a regular file: ", E,
       "The input is a folder, pipe, device or socket; nothing is converted."},
      {"Output path too long: ", E,
       "The output path reaches the system's limit for paths; nothing is converted."},
      {"The results file must not be the input: ", E,
       "The results path names the input itself; nothing is converted."},
      {"Conversion stopped: not enough memory", E,
       "Memory ran out; the conversion ends and the files already written stay whole."},
      {"Conversion stopped: output limit of ", E,
       "The run has written 8 times the input's size plus 64 MiB, more than any real bank needs; it stops and the files already written stay whole."},
      {"Conversion stopped: ", E,
       "Another failure ended the conversion; the files already written stay whole."},
      {"results file not written, its SFZ file is missing:", E,
       "The first SFZ file could not be written, so no results file names it."},
      {"results file not written, not a regular file:", E,
       "The results path is a folder, pipe, device or socket; it is left alone."},
      {"error writing results file:", E,
       "The results file could not be written whole; nothing is left under its name."},
      // Output files, whatever the format
      {"error creating output file!", E,
       "An SFZ file could not be created, usually because its folder is missing; that instrument or loop is lost."},
      {"Not able to open output file ", E,
       "A wave file could not be created: for a SoundFont bank its sample pool, and with it the whole conversion, for a collection that one wave."},
      {"error writing output file:", E,
       "A file could not be written whole (a full disk, a file-size limit); nothing is left under its name."},
      {"output path holds a link, file not written:", E,
       "A symbolic link stands where the file, or a folder below the output folder, would go; the file is skipped."},
      // Reading the input's chunks
      {"Error opening file", E, "The input could not be opened for reading; nothing is converted."},
      {"Not an IFF-like file", E,
       "The input is no RIFF file nor one of its relatives; nothing is converted."},
      {"Not enough space in real file for new chunks!!", E,
       "The input ends before the chunks its lists declare; nothing is converted."},
      {"Tree Error: chunks nested too deeply", E,
       "The input's chunks nest deeper than any real file's; nothing is converted."},
      {"Tree Error2", E, "The input ends inside a chunk's size; nothing is converted."},
      {"Tree Error3", E, "The input ends inside a chunk's 64-bit size; nothing is converted."},
      {"Tree Error4", E, "The input ends inside a list's type; nothing is converted."},
      // SoundFont banks
      {"Not a SoundFont file but a ", E,
       "The input's outer chunk, named in the message, is no SoundFont bank; nothing is converted."},
      {"SoundFont DOENST Contain ", E,
       "A chunk every bank needs (LIST(INFO), ifil or one of the nine record tables) is missing; nothing is converted."},
      {"SoundFont ", E,
       "A record table is no whole number of records, or it runs past the end of the file; nothing is converted."},
      {"ERROR no smpl!", E, "The bank holds no sample data; nothing is converted."},
      {"ERROR no pdta!", E, "The bank holds no preset data; nothing is converted."},
      {"Error shdr < 2", E, "The bank's sample table holds no sample; nothing is converted."},
      {"major read error exporting audio!", E,
       "The sample data could not be read whole; no sample pool and no preset is written."},
      // DLS collections
      {"Not a DLS file!", E, "The input is not the collection its extension promises; nothing is converted."},
      {"Bad lins chunk", E,
       "The collection has no instrument list; its waves are written, but no instrument."},
      // RMID songs
      {"Not a RIMD file!", E, "The input is not the song its extension promises; nothing is converted."},
      {"data chunk runs past the end of the file", E,
       "The song's MIDI data is cut short; its MIDI file is not written."},
      {"RIFF(DLS ) chunk runs past the end of the file", E,
       "The song's collection is cut short; it is neither extracted nor converted."},
      {"error writing sub file:", E,
       "One of the two files a song is split into could not be written; without its collection nothing is converted."},
      {"sub file would overwrite the input, not written:", E,
       "A file the song is split into would be the song itself (through a link or a second name); it is skipped."},
      // ACID loops
      {"Not a wave file but a ", E, "The input is no WAVE file; nothing is converted."},
      {"WAVE DOENST Contain data!", E, "The loop has no audio data; nothing is converted."},
      {"WAVE DOENST Contain fmt!", E, "The loop has no format chunk; nothing is converted."},

      // SoundFont banks
      {"Bank too large to convert: the remaining presets are skipped", W,
       "Converting the bank would take more work than any real bank needs; the presets not yet converted are left out."},
      {"PGEN operator out of bounds!", W, "A preset generator has an unknown number; it is left out."},
      {"IGEN operator out of bounds!", W, "An instrument generator has an unknown number; it is left out."},
      {"IMPLEMENT srcIndex : ", W,
       "A modulator of the vibrato depth or the filter cutoff has a source that is not translated; it is left out."},
      {"IMPLEMENT srcCC for initialFilterFc (index=", W,
       "A MIDI controller that moves the filter cutoff is not translated; it is left out."},
      {"ERROR CODE 666", W, "A modulator meets a slot that holds another kind of modulator; it is left out."},
      // DLS collections: instruments and regions
      {"vers chunk too short", W,
       "The collection's version chunk is cut short; the missing fields read as 0."},
      {"insh chunk too short, instrument skipped", W,
       "An instrument's header is cut short; the instrument is left out."},
      {"Error no lrgn!", W, "An instrument has no region list; its file is written without regions."},
      {"odd lrng child", W, "A region list holds a chunk that is no region; it is left out."},
      {"art1 chunk too short, connections skipped", W,
       "A level 1 connection list is cut short; its connections are left out."},
      {"art1 chunk holds only ", W,
       "A level 1 connection list holds fewer connections than it declares; the missing ones are left out."},
      {"art2 chunk too short, connections skipped", W,
       "A level 2 connection list is cut short; its connections are left out."},
      {"art2 chunk holds only ", W,
       "A level 2 connection list holds fewer connections than it declares; the missing ones are left out."},
      {"unknown destination: 0x", W,
       "A connection goes to a destination that is not translated; its line is left out or carries the raw value."},
      {"E: usSourceT : ", W,
       "A connection's source is inverted, bipolar or curved; that shape is not applied."},
      {"unknown source transform 0x", W, "A connection's source has an unknown curve; it is not applied."},
      {"Need to apply controlTransform usControlT!!!:0x", W,
       "A connection's control has a curve or shape; it is not applied."},
      {"Need to apply outputTransform OutputT!!!:0x", W,
       "A connection's output has a curve; it is not applied."},
      {"KeyVel to Filter std::coutoff fixingbad coef:", W,
       "A velocity to cutoff amount below the usable range is replaced by a fixed one."},
      {"wlnk chunk too short, region left empty", W,
       "A region's wave link is cut short; the region gets no wave and no ranges."},
      {"node_wlnk unknown fusOptions", W,
       "A region's wave link has options the format does not define; they are ignored."},
      {"error ulTableIndex out of bound:", W,
       "A region names a wave past the pool table; it gets no wave and no ranges, and no line end follows the number."},
      {"can't find wave cue in map:", W,
       "A region names a pool table entry that points at no wave; it gets no wave and no ranges, and no line end follows the number."},
      {"rgnh chunk too short, region left without ranges", W,
       "A region's header is cut short; the region gets no key or velocity range."},
      {"ERROR unimplemented taking defaults from wave itself", W,
       "A region has no tuning of its own; the wave's tuning and loop are not taken over."},
      {"wsmp chunk too short, region left untuned", W,
       "A region's tuning chunk is cut short; the region gets no tuning and no loop."},
      {"wsmp chunk too short for its loop, region left unlooped", W,
       "A region's tuning chunk ends inside its loop; the region gets no loop."},
      {"ERROR odd loop type:", W,
       "A loop is neither a forward nor a release loop; it is kept without a loop mode."},
      {"Error, DLS 2.2 doesn't support more than ONE loop, not ", W,
       "A region or wave declares several loops; the region gets none, the wave file no audio."},
      // DLS collections: the waves
      {"ptbl chunk too short, no wave can be found", W,
       "The pool table is cut short; no region gets a wave."},
      {"missing pool table ffset reference:0x", W,
       "A pool table entry points at no wave; the regions using it get none."},
      {"ptbl chunk holds only ", W,
       "The pool table holds fewer entries than it declares; the missing ones are left out."},
      {"fmt chunk too short, wave skipped:", W, "A wave's format chunk is cut short; the wave is left out."},
      {"wave without channels or sample rate skipped:", W,
       "A wave declares no channel or no sample rate; it is left out."},
      {"Error, DLS 2.2 supports only 8bit or 16bit PCM, not :", W,
       "A PCM wave has another bit depth; its file is written without a usable data chunk."},
      {"Error, DLS 2.2 supports only PCM files", W,
       "A wave is neither PCM nor ADPCM; its file is written without a usable data chunk."},
      {"ewav chunk too short:", W,
       "A compressed wave's header is cut short; the audio is expanded all the same."},
      {"wsmp chunk too short, no loop written for:", W,
       "A wave's tuning chunk is cut short; its file is written without a loop."},
      {"wsmp chunk too short for its loop, no loop written for:", W,
       "A wave's tuning chunk ends inside its loop; its file is written without a loop."},
      {"smpl chunk too short, no loop written for:", W,
       "A wave's sampler chunk is cut short; its file is written without a loop."},
      {"smpl loop record past the end of its chunk, no loop written for:", W,
       "A wave's sampler chunk ends inside its loop; its file is written without a loop."},
      {"wave data runs past the end of the file:", W,
       "A wave's audio is cut short; its file holds the part the input has."},
      // ACID loops
      {"fmt chunk too short: missing fields read as 0", W,
       "The loop's format chunk is cut short; the missing fields read as 0."},
      {"BAD wBitsPerSample:", W,
       "The loop has less than 8 bits per sample or no channel; its length in frames is estimated."},
      {"acid chunk too short: missing fields read as 0", W,
       "The loop's ACID chunk is cut short; the missing fields read as 0."},
      {"strc chunk holds only ", W,
       "The beat marker list holds fewer markers than it declares; the missing ones are left out."},
      {"removing marker close to or passed the end", W,
       "A beat marker lies on or past the loop's last frame; it is left out."},
      {"non trivial bit depth format, don't bother with re-zero crossing:", W,
       "The slices are not moved to zero crossings for this bit depth."},
      {"non trivial file format, don't bother with re-zero crossing:", W,
       "The slices are not moved to zero crossings for this sample format."},
      {"sample data missing, slices not moved to zero crossings", W,
       "The audio around a slice could not be read; the slices stay where the markers put them."},

      // SoundFont banks
      {"Extracting smpl to wav file...", I,
       "The sample pool is being written to sf2_smpl.wav; the same line ending in DONE! follows once it is whole."},
      // DLS collections
      {"MLS format!", I, "The collection is in the MLS form, read like DLS."},
      {"Compressed Audio found 0:", I,
       "A wave holds compressed audio, expanded to PCM; the numbers, in hexadecimal, are its format word and the room set aside."},
      {"No smpl/wsmpl info for:", I, "A wave carries no loop; its file is written unlooped."},
      // ACID loops
      {"WAVEFORMATEXTENSIBLE", I, "The loop's format chunk is the 40-byte extensible form."},
      {"Legacy WAVE fmt", I, "The loop's format chunk is 22 bytes long."},
      {"unknown wave fmt len:", I,
       "The loop's format chunk has another length, such as the plain 16 bytes; it is read all the same."},
      {"This is not an acid file", I,
       "The loop carries no ACID chunk; it is converted without tempo or beats."},
      {"WAVE DOENST Contain LIST(INFO)", I, "The loop carries no INFO texts for the file header."},
      {"This is not a complex acid file", I, "The loop has no beat markers; its SFZ file plays it whole."},
      {"removing disabled marker", I, "A beat marker is switched off in the loop; it is not used."},
      {"found market reset series!:", I,
       "A beat marker at the loop's start begins the slices anew; the number is the marker's index."},
      {"overwriting duplicate in this series:", I,
       "Two beat markers share a position and make one slice; the number is that position."},
  };
  return rows;
}

const Diagnostic* findDiagnostic(std::string_view line) {
  const Diagnostic* found = nullptr;
  for (const Diagnostic& row : diagnostics())
    if (line.substr(0, row.prefix.size()) == row.prefix && (!found || row.prefix.size() > found->prefix.size()))
      found = &row;
  return found;
}

}  // namespace tolvin
