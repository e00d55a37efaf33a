// The program's own datafile object types, loaded through the datafile
// reader from a datafile written by the test.
#include "platform/datafile.h"

#include "datafile_writer.h"
#include "test_support.h"

namespace {
struct Resource {
  Resource() { test_allegro(), datafile_init(); }
  ~Resource() { datafile_resource("#"); }
  void write(const std::vector<dat_object>& objects) {
    write_datafile(dir.path("res.dat"), objects);
    datafile_resource(dir.path("res.dat").c_str());
  }
  TempDir dir;
};

std::vector<std::string> names(const DATAFILE* d) {
  const imgf_struct* list = static_cast<const imgf_struct*>(d->dat);
  std::vector<std::string> v;
  for (int i = 0; i < list->count; ++i) v.push_back(list->entries[i]);
  return v;
}
}  // namespace

TEST(Datafile, ImageListsCountThenOneNamePerLine) {
  Resource res;
  res.write({{"ixmod.img", DAT_IMGF, "2\r\npfeil-ob.pcx\r\npfeil-un.pcx\r\n"}, {"unix.img", DAT_IMGF, "3\na b\n\nlast"},
             {"mac.img", DAT_IMGF, "1\rx.pcx"},        {"ixmod.mf", DAT_IMGF, "0"},
             {"short.img", DAT_IMGF, "3\r\na\r\nb"},  {"word.img", DAT_IMGF, "abc\r\nx"},
             {"negative.img", DAT_IMGF, "-2\r\nx"}, {"huge.img", DAT_IMGF, "2000000000\r\nx"},
             {"empty.img", DAT_IMGF, ""}});
  const struct { const char* object; std::vector<std::string> names; } lists[] = {
      {"ixmod.img", {"pfeil-ob.pcx", "pfeil-un.pcx"}}, {"unix.img", {"a b", "", "last"}}, {"mac.img", {"x.pcx"}},
      {"ixmod.mf", {}}};
  for (const auto& l : lists) {
    DATAFILE* d = datafile_object(l.object);
    ASSERT_NE(d, nullptr) << l.object;
    EXPECT_TRUE(d->type == DAT_IMGF && names(d) == l.names) << l.object;
    unload_datafile_object(d);
  }
  for (const char* broken : {"short.img", "word.img", "negative.img", "huge.img", "empty.img", "absent.img"})
    EXPECT_EQ(datafile_object(broken), nullptr) << broken;
}

TEST(Datafile, MetafilesKeepTheirBytes) {
  Resource res;
  const std::string bytes("\x01\x00\x00\x00 EMF body \xff", 16);
  res.write({{"pic.emf", DAT_EMF1, bytes}});
  DATAFILE* d = datafile_object("pic.emf");
  ASSERT_NE(d, nullptr);
  const emf_struct* e = static_cast<const emf_struct*>(d->dat);
  ASSERT_EQ(e->size, 16);
  enhmetafile* h = e->GetEnhMetaFileA();
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(h->bits), static_cast<size_t>(h->size)), bytes);
  EXPECT_NE(h->bits, e->bits);  // the handle owns a copy
  DeleteEnhMetaFile(h);
  unload_datafile_object(d);

  enhmetafile* f = GetEnhMetaFileA(res.dir.write("x.emf", bytes).c_str());
  ASSERT_TRUE(f && f->size == 16);
  DeleteEnhMetaFile(f);
  EXPECT_EQ(GetEnhMetaFileA(res.dir.path("none.emf").c_str()), nullptr);

  LogCapture log;
  const emf_struct empty(0, nullptr);
  EXPECT_EQ(empty.GetEnhMetaFileA(), nullptr);
  EXPECT_TRUE(log.has(": GetEnhMetaFile: empty\n") && log.has("warning: "));
}
