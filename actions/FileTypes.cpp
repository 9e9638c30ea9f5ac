#include "actions/FileTypes.h"

#include <algorithm>

namespace corvana {

namespace {

std::vector<std::string_view> itemsOf(std::string_view list) {
  std::vector<std::string_view> items;
  while (!list.empty()) {
    const std::size_t comma = std::min(list.find(','), list.size());
    if (comma > 0) items.push_back(list.substr(0, comma));
    list.remove_prefix(std::min(comma + 1, list.size()));
  }
  return items;
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool holds(std::string_view list, std::string_view extension) {
  const auto same = [](char a, char b) { return lower(a) == lower(b); };
  for (const std::string_view item : itemsOf(list)) {
    if (std::equal(item.begin(), item.end(), extension.begin(), extension.end(), same)) return true;
  }
  return false;
}

}  // namespace

ZAN_Value FileTypes::readTypesForExtensions() {
  const ZAN_Value types = mFiles.readObjectFromFile(DataFolder::kTypesForExtensions);
  return types.isDictionary() ? types : defaultTypes();
}

Outcome FileTypes::saveTypesByExtensions(const ZAN_Value& types) {
  return mFiles.writeObjectToFile(types, DataFolder::kTypesForExtensions);
}

std::string FileTypes::getTypeForExtension(std::string_view extension) {
  const ZAN_Value types = readTypesForExtensions();
  for (const ZAN_Value::Entry& entry : types.entries()) {
    if (holds(entry.value.stringView(), extension)) return entry.key.string();
  }
  return {};
}

ZAN_Value FileTypes::getAllTypesAndExtensions() {
  const ZAN_Value types = readTypesForExtensions();
  std::vector<ZAN_Value> all;
  for (const ZAN_Value::Entry& entry : types.entries()) {
    all.push_back(ZAN_Value::dictionary({{"Type", entry.key}, {"Extensions", entry.value}}));
  }
  std::sort(all.begin(), all.end(), [](const ZAN_Value& a, const ZAN_Value& b) {
    return a["Type"].stringView() < b["Type"].stringView();
  });
  return ZAN_Value::array(std::move(all));
}

std::string FileTypes::getAllTypesAndExtensionsStr() {
  std::string text;
  const ZAN_Value all = getAllTypesAndExtensions();
  for (const ZAN_Value& entry : all.elements()) {
    text += entry.string("Type") + ": " + entry.string("Extensions") + "\n";
  }
  return text;
}

ZAN_Value FileTypes::defaultTypes() {
  return ZAN_Value::dictionary(
      {{"Image",
        "3fr,8pbs,apng,arw,bmp,bum,cr2,cr3,crw,cur,dcr,dng,epi,eps,epsf,epsi,erf,exr,fpix,fpx,gif,"
        "hdr,heic,icns,ico,iiq,jp2,jpc,jpe,jpeg,jpg,k25,lfp,mac,mef,mos,mrw,nef,orf,pbm,pct,pcx,"
        "pef,pgm,pic,pict,png,pnm,pnt,ppm,ps,psb,psd,psp,ptng,qif,qti,qtif,raf,rgb,rw2,sgi,sr2,srf,"
        "targa,tga,tif,tiff,x3ff,xbm,xmp,xpm"},
       {"Video",
        "3g2,3gp,asf,avi,dif,f4a,f4b,f4p,f4v,fiv,flv,m2p,m2ts,m4v,mkv,mov,mp4,mpa,mpg,mts,mxf,nsv,"
        "ogv,qt,rmbvb,roq,svi,vob,webm,wmv,yuv"},
       {"Audio", "aac,aif,au,cda,m3u,m4a,mid,mod,mp2,mp3,ogg,ram,rm,vqf,wav,wma"},
       {"Document",
        "afdesign,afphoto,ai,db,dmg,doc,docx,dwg,dxf,eml,eot,gpx,htm,html,ichat,indd,numbers,ods,"
        "odt,pages,pdf,ppt,pptx,rtf,txt,xls,xlsx"}});
}

std::string FileTypes::getExtensionsForType(std::string_view type, const ZAN_Value& types) {
  return types.string(type);
}

void FileTypes::addExtensions(std::string_view extensions, std::string_view type,
                              ZAN_Value& types) {
  std::string list = cleanExtensions(getExtensionsForType(type, types));
  const std::string added = cleanExtensions(extensions);
  for (const std::string_view item : itemsOf(added)) {
    if (holds(list, item)) continue;
    if (!list.empty()) list += ',';
    list += item;
  }
  types.setValue(type, list);
}

std::string FileTypes::cleanExtensions(std::string_view extensions) {
  std::string compact(extensions);
  std::erase(compact, ' ');
  std::string clean;
  for (const std::string_view item : itemsOf(compact)) {
    if (!clean.empty()) clean += ',';
    clean += item;
  }
  return clean;
}

}  // namespace corvana
