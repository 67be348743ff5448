import com.google.protobuf.Message;
import com.quorvane.zul.mediaprocessors.extractor_jni.*;
import com.quorvane.zul.mediaprocessors.extractor_results.*;
import java.io.File;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import javax.imageio.ImageIO;

/**
 * The Java API from start to end: faces, classification and the skeleton of some photos,
 * kept in a result store, printed as typed messages.
 *
 * <pre>
 * java -jar build/lib/ExtractorSample.jar [--store FILE] [--models DIR] [--framework FILE] PHOTO...
 * </pre>
 *
 * Without options every path is found from this jar's own directory (build/lib): the
 * native library beside it, the models in ../models, the framework configuration in
 * ../share/vqfe/framework.json and the store in ../samples/results.db, so the sample
 * runs from any working directory. A second run is answered from the store.
 */
public final class ExtractorSample {
  private static final AlgorithmType[] KINDS = {
    AlgorithmType.Face, AlgorithmType.NHClassification, AlgorithmType.Skeleton
  };

  public static void main(String[] args) throws Exception {
    Path lib = Paths.get(ExtractorSample.class.getProtectionDomain().getCodeSource().getLocation().toURI()).getParent();
    Path store = lib.resolve("../samples/results.db").normalize();
    Path models = lib.resolve("../models").normalize();
    Path framework = lib.resolve("../share/vqfe/framework.json").normalize();
    List<Path> photos = new ArrayList<>();
    for (int i = 0; i < args.length; i++) {
      switch (args[i]) {
        case "--store": store = Paths.get(args[++i]); break;
        case "--models": models = Paths.get(args[++i]); break;
        case "--framework": framework = Paths.get(args[++i]); break;
        default: photos.add(Paths.get(args[i]));
      }
    }
    if (photos.isEmpty()) {
      System.err.println("usage: ExtractorSample [--store FILE] [--models DIR] [--framework FILE] PHOTO...");
      System.exit(2);
    }
    // Load the native library from beside this jar; without it, -Djava.library.path.
    File jni = lib.resolve(System.mapLibraryName("ExtractorJni")).toFile();
    if (jni.isFile()) System.load(jni.getAbsolutePath());
    Files.createDirectories(store.toAbsolutePath().getParent());

    // The store is the first cache: consulted before running (useCache true) and filled
    // with every new result. Closing the extractor and the store releases them.
    try (SqliteCache cache = new SqliteCache(store.toString());
        Extractor extractor = new Extractor(new Config(), cache, null, models.toString(), framework.toString(), false)) {
      int code = extractor.init();
      if (code != 0) {
        System.err.println("the framework did not start: code " + code + " (check --models and --framework)");
        System.exit(1);
      }
      ResourceList resources = new ResourceList();
      for (Path photo : photos) {
        // The asset id is the cache key: one id per distinct picture.
        String assetId = photo.toAbsolutePath().normalize().toString();
        resources.add(new Resource(assetId, assetId, ImagePixels.fromBufferedImage(ImageIO.read(photo.toFile()))));
      }
      for (AlgorithmType kind : KINDS) {
        Input request = new Input(resources, CoverUtil.getAlgorithmConf(kind), new StringLongMap(), kind);
        ErrorPair error = new ErrorPair(0, "");
        FeatureResultList results = extractor.extractFeatures(request, true, error);
        if (error.getFirst() != 0) {
          System.out.println(kind + ": error " + error.getFirst() + " " + error.getSecond());
        }
        for (int i = 0; i < results.size(); i++) {
          Message message = ResultMessages.parse(results.get(i));
          System.out.println(photos.get(i).getFileName() + " " + kind + ": "
              + (message == null ? "no result" : describe(message)));
        }
      }
    }
  }

  private static String describe(Message message) {
    if (message instanceof C_FaceBuffer) {
      C_FaceBuffer faces = (C_FaceBuffer) message;
      StringBuilder out = new StringBuilder(faces.getMFaceBaseInfosCount() + " face(s)");
      for (C_Face106 face : faces.getMFaceBaseInfosList()) {
        // y counts from the bottom of the picture, y_vantor from the top.
        C_Rect r = face.getRect();
        out.append(String.format(" [score %.2f at x %.3f, y_vantor %.3f, %.3f x %.3f, %d points]", face.getScore(),
            r.getX(), r.getYVantor(), r.getWidth(), r.getHeight(), face.getPointsArrayCount()));
      }
      return out.toString();
    }
    if (message instanceof C_NHClassificationBuffer) {
      C_NHClassificationBuffer classes = (C_NHClassificationBuffer) message;
      if (classes.getMClassificationInfosCount() == 0) return "no classes";
      C_NHClassificationInfo best = classes.getMClassificationInfos(0);
      StringBuilder out = new StringBuilder("top classes");
      for (int i = 0; i < Math.min(3, best.getIdCount()); i++) {
        int id = best.getId(i);
        String label = id >= 0 && id < classes.getMLabelsCount() ? classes.getMLabels(id) : "#" + id;
        out.append(String.format(" %s %.2f", label, best.getConfidence(i)));
      }
      return out.toString();
    }
    if (message instanceof C_SkeletonBuffer) {
      C_SkeletonBuffer skeleton = (C_SkeletonBuffer) message;
      StringBuilder out = new StringBuilder(skeleton.getMSkeletonInfosCount() + " person(s)");
      for (C_SkeletonInfo person : skeleton.getMSkeletonInfosList()) {
        out.append(" [").append(person.getKeyPointsXyCount()).append(" key points]");
      }
      return out.toString();
    }
    return message.getClass().getSimpleName();
  }
}
