package javax.servlet.http;

public interface HttpServletResponse extends javax.servlet.ServletResponse {
}
